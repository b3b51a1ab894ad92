// Typed XPath evaluation (XPath.h) and XPath requests with namespace bindings.
#include "tarnxml/XPath.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

const char* const kFeed =
    "<?xml version=\"1.0\"?>\n"
    "<feed xmlns=\"http://www.w3.org/2005/Atom\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\">"
    "<title>News</title>"
    "<entry id=\"1\" dc:lang=\"en\"><title>First</title><dc:creator>Ann</dc:creator></entry>"
    "<entry id=\"2\"><title>Second</title><dc:creator>Bob</dc:creator></entry>"
    "</feed>";

const char* const kMixed =
    "<?xml version=\"1.0\"?>\n"
    "<?head first?>"
    "<doc a=\"1\" b=\"two\"><!-- note --><p>one <b>bold</b><![CDATA[ <raw> ]]>tail</p>"
    "<?proc data here?><q/></doc>";

tarn::XmlDocument& load(tarn::XmlDocument& document, const char* text)
{
    EXPECT_EQ(0, document.Load(text, false));
    return document;
}

std::vector<std::string> values(const tarn::XPathResult& result)
{
    std::vector<std::string> out;
    for (const tarn::XPathNode& node : result.nodes)
        out.push_back(node.value);
    return out;
}

TEST(XPathTyped, NodeSetsOfEveryKind)
{
    tarn::XmlDocument document;
    load(document, kMixed);
    struct Case {
        const char* xpath;
        tarn::XPathNode::Kind kind;
        const char* name;
        const char* value;
        bool handle;
    };
    const Case cases[] = {
        {"/doc/p", tarn::XPathNode::Element, "p", "one bold <raw> tail", true},
        {"/doc/@b", tarn::XPathNode::Attribute, "b", "two", true},
        {"/doc/p/text()[1]", tarn::XPathNode::Text, "", "one ", true},
        {"//p/node()[3]", tarn::XPathNode::CData, "", " <raw> ", true},
        {"//comment()", tarn::XPathNode::Comment, "", " note ", true},
        {"//processing-instruction('proc')", tarn::XPathNode::ProcessingInstruction, "proc", "data here", true},
        {"/", tarn::XPathNode::Document, "", "one bold <raw> tail", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const tarn::XPathResult result = tarn::EvaluateXPath(document, c.xpath);
        ASSERT_EQ(tarn::XPathResult::NodeSet, result.type) << result.error;
        ASSERT_EQ(1u, result.nodes.size());
        const tarn::XPathNode& node = result.nodes[0];
        EXPECT_EQ(c.kind, node.kind);
        EXPECT_EQ(c.name, node.name);
        EXPECT_EQ(c.value, node.value);
        EXPECT_EQ(c.value, result.string);
        EXPECT_EQ(c.handle, static_cast<bool>(node.node));
        EXPECT_NE(nullptr, node.raw);
    }
    // An attribute's handle is its owner element; an element's handle is usable as any other.
    EXPECT_EQ("doc", tarn::EvaluateXPath(document, "//@a").nodes.at(0).node->GetName());
    EXPECT_EQ("bold", tarn::EvaluateXPath(document, "//b").nodes.at(0).node->GetData());
    // Document order, whatever order the union names them in.
    EXPECT_EQ((std::vector<std::string>{"1", "two", ""}), values(tarn::EvaluateXPath(document, "//q | /doc/@b | /doc/@a")));
}

TEST(XPathTyped, NumbersStringsBooleansAndEmptySets)
{
    tarn::XmlDocument document;
    load(document, kMixed);
    const tarn::XPathResult number = tarn::EvaluateXPath(document, "count(//*) div 2");
    EXPECT_EQ(tarn::XPathResult::Number, number.type);
    EXPECT_DOUBLE_EQ(2.0, number.number);
    EXPECT_EQ("2", number.string);
    EXPECT_EQ("0.25", tarn::EvaluateXPath(document, "1 div 4").string);
    const tarn::XPathResult nan = tarn::EvaluateXPath(document, "number('x')");
    EXPECT_TRUE(std::isnan(nan.number));
    EXPECT_EQ("NaN", nan.string);
    EXPECT_EQ("Infinity", tarn::EvaluateXPath(document, "1 div 0").string);

    const tarn::XPathResult text = tarn::EvaluateXPath(document, "concat(/doc/@b, '-', name(/*))");
    EXPECT_EQ(tarn::XPathResult::String, text.type);
    EXPECT_EQ("two-doc", text.string);

    const tarn::XPathResult yes = tarn::EvaluateXPath(document, "boolean(//q)");
    EXPECT_EQ(tarn::XPathResult::Boolean, yes.type);
    EXPECT_TRUE(yes.boolean);
    EXPECT_EQ("true", yes.string);
    EXPECT_EQ("false", tarn::EvaluateXPath(document, "1 = 2").string);

    const tarn::XPathResult none = tarn::EvaluateXPath(document, "//missing");
    EXPECT_TRUE(none.ok());
    EXPECT_EQ(tarn::XPathResult::NodeSet, none.type);
    EXPECT_TRUE(none.nodes.empty());
    EXPECT_EQ("", none.string);
}

// Runs `action` with standard error redirected and returns what was written there.
template <typename Action>
std::string stderrOf(Action action)
{
    std::fflush(stderr);
    FILE* capture = std::tmpfile();
    const int saved = ::dup(2);
    ::dup2(::fileno(capture), 2);
    action();
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    std::string out;
    std::rewind(capture);
    int c;
    while ((c = std::fgetc(capture)) != EOF)
        out += static_cast<char>(c);
    std::fclose(capture);
    return out;
}

TEST(XPathTyped, ErrorsCarryLibxml2MessagesAndPrintNothing)
{
    tarn::XmlDocument document;
    load(document, kFeed);
    struct Case {
        const char* xpath;
        bool compiles;
        const char* message;
    };
    const Case cases[] = {
        {"//a[", false, "Invalid expression"},
        {"count(", true, "Invalid number of arguments"},
        {"1 +", false, "Invalid expression"},
        {"p:f()", true, "xmlXPathCompOpEval: function f bound to undefined prefix p"},
        {"nosuch(1)", true, "Unregistered function"},
        {"$undefined", true, "Undefined variable"},
        {"//p:a", true, "Undefined namespace prefix"},
        {"count(1)", true, "Invalid type"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const std::string printed = stderrOf([&] {
            const tarn::XPathExpression expression(c.xpath);
            EXPECT_EQ(c.compiles, expression.valid());
            EXPECT_EQ(c.compiles ? "" : c.message, expression.error());
            const tarn::XPathResult result = expression.Evaluate(document);
            EXPECT_FALSE(result.ok());
            EXPECT_EQ(c.message, result.error);
            EXPECT_FALSE(result.stepLimitReached);
        });
        EXPECT_EQ("", printed);
    }
    EXPECT_EQ("no document loaded", tarn::EvaluateXPath(tarn::XmlDocument(), "1").error);
    EXPECT_EQ("no node", tarn::XPathExpression("1").Evaluate(tarn::XmlNode()).error);
}

TEST(XPathTyped, ThreadsSeeOnlyTheirOwnErrors)
{
    auto worker = [](const char* xpath, const char* message, int* mismatches) {
        tarn::XmlDocument document;
        document.Load("<a><b/></a>", false);
        for (int i = 0; i < 300; ++i) {
            const tarn::XPathResult result = tarn::EvaluateXPath(document, xpath);
            if (result.error != message)
                ++*mismatches;
        }
    };
    int first = 0, second = 0;
    std::thread a(worker, "nosuch()", "Unregistered function", &first);
    std::thread b(worker, "//x:b", "Undefined namespace prefix", &second);
    a.join();
    b.join();
    EXPECT_EQ(0, first);
    EXPECT_EQ(0, second);
}

TEST(XPathTyped, CompiledOnceEvaluatedOnManyDocumentsAndBindings)
{
    const tarn::XPathExpression titles("//a:title");
    ASSERT_TRUE(titles.valid());
    tarn::XmlDocument feed, other;
    load(feed, kFeed);
    load(other, "<r xmlns='urn:other'><title>x</title></r>");
    tarn::XPathOptions atom;
    atom.namespaces = {{"a", "http://www.w3.org/2005/Atom"}};
    tarn::XPathOptions otherNs;
    otherNs.namespaces = {{"a", "urn:other"}};
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ((std::vector<std::string>{"News", "First", "Second"}), values(titles.Evaluate(feed, atom)));
        EXPECT_TRUE(titles.Evaluate(feed, otherNs).nodes.empty());
        EXPECT_EQ((std::vector<std::string>{"x"}), values(titles.Evaluate(other, otherNs)));
        EXPECT_EQ("Undefined namespace prefix", titles.Evaluate(other).error);
    }
    // Relative to a node.
    const tarn::XPathResult entries = tarn::EvaluateXPath(feed, "//a:entry", atom);
    ASSERT_EQ(2u, entries.nodes.size());
    EXPECT_EQ("Bob", tarn::XPathExpression("d:creator").Evaluate(*entries.nodes[1].node, {{{"d", "http://purl.org/dc/elements/1.1/"}}, 0}).string);
    tarn::XPathExpression moved(std::move(const_cast<tarn::XPathExpression&>(titles)));
    EXPECT_TRUE(moved.valid());
    EXPECT_FALSE(titles.valid());
}

TEST(XPathTyped, NamespacedNodesReportTheirNames)
{
    tarn::XmlDocument document;
    load(document, kFeed);
    tarn::XPathOptions options;
    options.namespaces = {{"_", "http://www.w3.org/2005/Atom"}, {"creator", "http://purl.org/dc/elements/1.1/"}};
    const tarn::XPathResult creators = tarn::EvaluateXPath(document, "//creator:creator | //@creator:lang", options);
    ASSERT_EQ(3u, creators.nodes.size());
    EXPECT_EQ("dc:lang", creators.nodes[0].name);
    EXPECT_EQ(tarn::XPathNode::Attribute, creators.nodes[0].kind);
    EXPECT_EQ("dc:creator", creators.nodes[1].name);
    EXPECT_EQ("http://purl.org/dc/elements/1.1/", creators.nodes[1].namespaceURI);
    const tarn::XPathResult title = tarn::EvaluateXPath(document, "/_:feed/_:title", options);
    ASSERT_EQ(1u, title.nodes.size());
    EXPECT_EQ("title", title.nodes[0].name);
    EXPECT_EQ("http://www.w3.org/2005/Atom", title.nodes[0].namespaceURI);
    // Namespace nodes: prefix and URI, no handle; the copies libxml2 makes are freed with the
    // result (the sanitizer run checks).
    const tarn::XPathResult declared = tarn::EvaluateXPath(document, "/*/namespace::*");
    std::vector<std::string> names;
    for (const tarn::XPathNode& n : declared.nodes) {
        EXPECT_EQ(tarn::XPathNode::Namespace, n.kind);
        EXPECT_FALSE(n.node);
        names.push_back(n.name + "=" + n.value);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"=http://www.w3.org/2005/Atom", "dc=http://purl.org/dc/elements/1.1/",
                                        "xml=http://www.w3.org/XML/1998/namespace"}),
              names);
    // An empty prefix cannot be bound.
    options.namespaces = {{"", "http://www.w3.org/2005/Atom"}};
    EXPECT_FALSE(tarn::EvaluateXPath(document, "//title", options).ok());
}

TEST(XPathTyped, StepLimitStopsRunawayExpressions)
{
    std::string text = "<r>";
    for (int i = 0; i < 1500; ++i)
        text += "<a/>";
    text += "</r>";
    tarn::XmlDocument document;
    load(document, text.c_str());
    const tarn::XPathExpression runaway("//a[count(//a) > 0]");
    tarn::XPathOptions bounded;
    bounded.maxSteps = 100000;
    const tarn::XPathResult stopped = runaway.Evaluate(document, bounded);
    EXPECT_FALSE(stopped.ok());
    EXPECT_TRUE(stopped.stepLimitReached);
    EXPECT_EQ("XPath step limit reached", stopped.error);
    // The default lets this (over two million steps) finish.
    const tarn::XPathResult finished = runaway.Evaluate(document);
    EXPECT_TRUE(finished.ok()) << finished.error;
    EXPECT_EQ(1500u, finished.nodes.size());
}

TEST(XPathTyped, SetNodeTextReplacesWhatTheNodeHolds)
{
    tarn::XmlDocument document;
    load(document, kMixed);
    auto first = [&](const char* xpath) { return tarn::EvaluateXPath(document, xpath).nodes.at(0); };
    struct Case {
        const char* xpath;
        const char* text;
        const char* check;
        const char* expected;
    };
    const Case cases[] = {
        {"/doc/p", "a < b & \"c\"", "/doc/p", "<p>a &lt; b &amp; \"c\"</p>"},
        {"/doc/@b", "x & <y>", "/doc", "<doc a=\"1\" b=\"x &amp; &lt;y&gt;\">"},
        {"/doc/q", "", "/doc/q", "<q/>"},
        {"//comment()", " changed ", "/doc", "<!-- changed -->"},
        {"//processing-instruction('proc')", "new", "/doc", "<?proc new?>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        EXPECT_EQ(0, tarn::SetNodeText(first(c.xpath), c.text));
        EXPECT_NE(std::string::npos, first(c.check).node->OuterXml().find(c.expected)) << first(c.check).node->OuterXml();
    }
    // The element's whole content went, CDATA and child elements included: one text node left.
    EXPECT_EQ(1.0, tarn::EvaluateXPath(document, "count(/doc/p/node())").number);
    EXPECT_EQ(tarn::XPathNode::Text, first("/doc/p/node()").kind);

    load(document, kMixed);
    EXPECT_EQ(0, tarn::SetNodeText(first("//p/node()[4]"), "TAIL"));
    EXPECT_EQ(0, tarn::SetNodeText(first("//p/node()[3]"), "]]> inside"));
    EXPECT_EQ("<p>one <b>bold</b><![CDATA[]]]]><![CDATA[> inside]]>TAIL</p>", first("//p").node->OuterXml());
    // Sanitised like every text entering a tree.
    EXPECT_EQ(0, tarn::SetNodeText(first("//b"), std::string("x\x01y\xff", 4)));
    EXPECT_EQ("x?y\xEF\xBF\xBD", first("//b").value);

    EXPECT_EQ(-1, tarn::SetNodeText(first("/"), "x"));
    EXPECT_EQ(-1, tarn::SetNodeText(first("/*/namespace::*"), "x"));
    EXPECT_EQ(-1, tarn::SetNodeText(tarn::XPathNode(), "x"));
}

// --- Namespace bindings on the iterator requests ------------------------------------------------

std::vector<std::string> names(tarn::XPathNodeIterator* it)
{
    std::vector<std::string> out;
    for (tarn::XmlNodePtr n = it != nullptr ? it->GetFirst() : tarn::XmlNodePtr(); n; n = it->GetNext())
        out.push_back(n->GetName() + ":" + n->GetData());
    return out;
}

TEST(XPathNamespaces, IteratorRequestsWithBindings)
{
    tarn::XmlDocument document;
    load(document, kFeed);
    const std::string atom = "http://www.w3.org/2005/Atom";
    const std::string dc = "http://purl.org/dc/elements/1.1/";
    // The default namespace bound to a prefix of the caller's choosing.
    EXPECT_EQ((std::vector<std::string>{"title:First", "title:Second"}),
              names(document.GetIterator("//_:entry/_:title", {{"_", atom}})));
    // A prefix the document does not declare, bound to one of its URIs.
    EXPECT_EQ((std::vector<std::string>{"creator:Ann", "creator:Bob"}),
              names(document.GetIterator("//who:creator", {{"who", dc}})));
    // The document's own prefix bound to another URI selects nothing.
    EXPECT_TRUE(names(document.GetIterator("//dc:creator", {{"dc", "urn:elsewhere"}})).empty());
    // Bindings from the document itself, default namespace renamed.
    tarn::XmlNamespaceBindings own;
    for (const auto& binding : document.GetRoot()->GetNamespacesInScope())
        own.emplace_back(binding.first.empty() ? "_" : binding.first, binding.second);
    EXPECT_EQ((std::vector<std::string>{"creator:Bob"}), names(document.GetIterator("//_:entry[@id=2]/dc:creator", own)));
    // Handle requests: relative to the node.
    tarn::XmlNodePtr entry = document.GetIterator("//_:entry", {{"_", atom}})->GetFirst();
    ASSERT_TRUE(entry);
    tarn::XmlNodePtr entryHandle = tarn::EvaluateXPath(document, "//_:entry", {{{"_", atom}}, 0}).nodes.at(0).node;
    EXPECT_EQ((std::vector<std::string>{"creator:Ann"}), names(entryHandle->GetIterator("dc:creator", {{"dc", dc}})));
}

TEST(XPathNamespaces, FailuresKeepThePreviousResultQuietly)
{
    tarn::XmlDocument document;
    load(document, kFeed);
    const std::string dc = "http://purl.org/dc/elements/1.1/";
    ASSERT_EQ(2u, names(document.GetIterator("//d:creator", {{"d", dc}})).size());
    const std::string printed = stderrOf([&] {
        // The request without bindings registers nothing: the prefix is unbound.
        tarntest::QuietLibxml2 quiet;
        EXPECT_EQ(2u, names(document.GetIterator("//dc:creator")).size());
    });
    EXPECT_EQ("", printed);
    const std::string printedBound = stderrOf([&] {
        EXPECT_EQ(2u, names(document.GetIterator("//x:creator", {{"d", dc}})).size());
        EXPECT_EQ(2u, names(document.GetIterator("//d:creator[", {{"d", dc}})).size());
        EXPECT_EQ(2u, names(document.GetIterator("//creator", {{"", dc}})).size());
    });
    EXPECT_EQ("", printedBound);
    EXPECT_EQ(nullptr, tarn::XmlDocument().GetIterator("/", {}));
    EXPECT_EQ(nullptr, tarn::XmlNode().GetIterator("/", {}));
}

} // namespace
