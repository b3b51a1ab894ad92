// Typed XPath evaluation (XPath.h) and XPath requests with namespace bindings.
#include "tarnxml/XPath.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "TestSupport.h"

#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace {

using tarn::EvaluateXPath;
using tarn::XPathNode;
using tarn::XPathResult;
using Strings = std::vector<std::string>;

const std::string kAtom = "http://www.w3.org/2005/Atom", kDc = "http://purl.org/dc/elements/1.1/";
const char* const kFeed =
    "<?xml version=\"1.0\"?>\n"
    "<feed xmlns=\"http://www.w3.org/2005/Atom\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\">"
    "<title>News</title>"
    "<entry id=\"1\" dc:lang=\"en\"><title>First</title><dc:creator>Ann</dc:creator></entry>"
    "<entry id=\"2\"><title>Second</title><dc:creator>Bob</dc:creator></entry>"
    "</feed>";
const char* const kMixed = "<?xml version=\"1.0\"?>\n<?head first?>"
                           "<doc a=\"1\" b=\"two\"><!-- note --><p>one <b>bold</b><![CDATA[ <raw> ]]>tail</p>"
                           "<?proc data here?><q/></doc>";

// A document loaded from `text` (the load is checked).
struct Loaded : tarn::XmlDocument {
    explicit Loaded(const std::string& text) { EXPECT_EQ(0, Load(text, false)); }
};

Strings values(const XPathResult& result)
{
    Strings out;
    for (const XPathNode& node : result.nodes)
        out.push_back(node.value);
    return out;
}

// Runs `action` and returns what was written to standard error (file descriptor 2) meanwhile.
template <typename Action>
std::string stderrOf(Action action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST(XPathTyped, NodeSetsOfEveryKind)
{
    Loaded document(kMixed);
    struct Case { const char* xpath; XPathNode::Kind kind; const char* name; const char* value; bool handle; };
    const Case cases[] = {
        {"/doc/p", XPathNode::Element, "p", "one bold <raw> tail", true},
        {"/doc/@b", XPathNode::Attribute, "b", "two", true},
        {"/doc/p/text()[1]", XPathNode::Text, "", "one ", true},
        {"//p/node()[3]", XPathNode::CData, "", " <raw> ", true},
        {"//comment()", XPathNode::Comment, "", " note ", true},
        {"//processing-instruction('proc')", XPathNode::ProcessingInstruction, "proc", "data here", true},
        {"/", XPathNode::Document, "", "one bold <raw> tail", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const XPathResult result = EvaluateXPath(document, c.xpath);
        ASSERT_EQ(XPathResult::NodeSet, result.type) << result.error;
        ASSERT_EQ(1u, result.nodes.size());
        const XPathNode& node = result.nodes[0];
        EXPECT_EQ(c.kind, node.kind);
        EXPECT_EQ(c.name, node.name);
        EXPECT_EQ(c.value, node.value);
        EXPECT_EQ(c.value, result.string);
        EXPECT_EQ(c.handle, static_cast<bool>(node.node));
        EXPECT_NE(nullptr, node.raw);
    }
    // An attribute's handle is its owner element; an element's handle is usable as any other.
    EXPECT_EQ("doc", EvaluateXPath(document, "//@a").nodes.at(0).node->GetName());
    EXPECT_EQ("bold", EvaluateXPath(document, "//b").nodes.at(0).node->GetData());
    // Document order, whatever order the union names them in.
    EXPECT_EQ((Strings{"1", "two", ""}), values(EvaluateXPath(document, "//q | /doc/@b | /doc/@a")));
}

TEST(XPathTyped, StringValuesMatchLibxml2AndHandlesOutliveTheResult)
{
    // Nesting that climbs several levels at once, empty elements, comments and processing
    // instructions (not part of a string value), CDATA, and entity references kept as nodes
    // (also nested in another entity) whose replacement text counts.
    Loaded document("<!DOCTYPE r [<!ENTITY e 'ent'><!ENTITY f '[&e;]'>]>"
                    "<r>a<x><y><z>deep</z></y></x>b<!-- c --><?p i?><e/><![CDATA[cd]]>"
                    "<m>1&e;2<n>&f;</n></m><w><v/>tail</w></r>");
    const XPathResult all = EvaluateXPath(document, "//*");
    ASSERT_EQ(9u, all.nodes.size());
    for (const XPathNode& node : all.nodes) {
        SCOPED_TRACE(node.name);
        xmlChar* const expected = xmlXPathCastNodeToString(node.raw);
        EXPECT_EQ(reinterpret_cast<const char*>(expected), node.value);
        xmlFree(expected);
    }
    EXPECT_EQ("1ent2[ent]", all.nodes.at(5).value);
    // Each node has a handle of its own, and a handle kept past its result stays usable.
    tarn::XmlNodePtr kept;
    {
        const XPathResult deep = EvaluateXPath(document, "//x | //z");
        ASSERT_EQ(2u, deep.nodes.size());
        EXPECT_EQ("x", deep.nodes[0].node->GetName());
        kept = deep.nodes[1].node;
    }
    EXPECT_EQ("deep", kept->GetData());
    EXPECT_EQ(0, kept->SetAttribute("k", "v"));
    EXPECT_EQ("<z k=\"v\">deep</z>", kept->OuterXml());
}

TEST(XPathTyped, NumbersStringsBooleansAndEmptySets)
{
    Loaded document(kMixed);
    struct Case { const char* xpath; XPathResult::Type type; const char* string; };
    const Case cases[] = {
        {"count(//*) div 2", XPathResult::Number, "2"},    {"1 div 4", XPathResult::Number, "0.25"},
        {"number('x')", XPathResult::Number, "NaN"},       {"1 div 0", XPathResult::Number, "Infinity"},
        {"concat(/doc/@b, '-', name(/*))", XPathResult::String, "two-doc"},
        {"boolean(//q)", XPathResult::Boolean, "true"},    {"1 = 2", XPathResult::Boolean, "false"},
        {"//missing", XPathResult::NodeSet, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const XPathResult result = EvaluateXPath(document, c.xpath);
        EXPECT_TRUE(result.ok()) << result.error;
        EXPECT_EQ(c.type, result.type);
        EXPECT_EQ(c.string, result.string);
    }
    EXPECT_DOUBLE_EQ(2.0, EvaluateXPath(document, "count(//*) div 2").number);
    EXPECT_TRUE(std::isnan(EvaluateXPath(document, "number('x')").number));
    EXPECT_TRUE(EvaluateXPath(document, "boolean(//q)").boolean);
    EXPECT_TRUE(EvaluateXPath(document, "//missing").nodes.empty());
}

TEST(XPathTyped, ErrorsCarryLibxml2MessagesAndPrintNothing)
{
    Loaded document(kFeed);
    struct Case { const char* xpath; bool compiles; const char* message; };
    const Case cases[] = {
        {"//a[", false, "Invalid expression"},         {"count(", true, "Invalid number of arguments"},
        {"1 +", false, "Invalid expression"},          {"nosuch(1)", true, "Unregistered function"},
        {"$undefined", true, "Undefined variable"},    {"//p:a", true, "Undefined namespace prefix"},
        {"count(1)", true, "Invalid type"},
        {"p:f()", true, "xmlXPathCompOpEval: function f bound to undefined prefix p"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const std::string printed = stderrOf([&] {
            const tarn::XPathExpression expression(c.xpath);
            EXPECT_EQ(c.compiles, expression.valid());
            EXPECT_EQ(c.compiles ? "" : c.message, expression.error());
            const XPathResult result = expression.Evaluate(document);
            EXPECT_FALSE(result.ok());
            EXPECT_EQ(c.message, result.error);
            EXPECT_FALSE(result.stepLimitReached);
        });
        EXPECT_EQ("", printed);
    }
    EXPECT_EQ("no document loaded", EvaluateXPath(tarn::XmlDocument(), "1").error);
    EXPECT_EQ("no node", tarn::XPathExpression("1").Evaluate(tarn::XmlNode()).error);
}

TEST(XPathTyped, ThreadsSeeOnlyTheirOwnErrors)
{
    auto worker = [](const char* xpath, std::string message, int* mismatches) {
        Loaded document("<a><b/></a>");
        for (int i = 0; i < 300; ++i)
            *mismatches += EvaluateXPath(document, xpath).error != message;
    };
    int mismatches[2] = {0, 0};
    std::thread other(worker, "nosuch()", "Unregistered function", &mismatches[0]);
    worker("//x:b", "Undefined namespace prefix", &mismatches[1]); // on this thread meanwhile
    other.join();
    EXPECT_EQ(0, mismatches[0]);
    EXPECT_EQ(0, mismatches[1]);
}

TEST(XPathTyped, CompiledOnceEvaluatedOnManyDocumentsAndBindings)
{
    tarn::XPathExpression titles("//a:title");
    ASSERT_TRUE(titles.valid());
    Loaded feed(kFeed), other("<r xmlns='urn:other'><title>x</title></r>");
    const tarn::XPathOptions atom{{{"a", kAtom}}}, otherNs{{{"a", "urn:other"}}};
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ((Strings{"News", "First", "Second"}), values(titles.Evaluate(feed, atom)));
        EXPECT_TRUE(titles.Evaluate(feed, otherNs).nodes.empty());
        EXPECT_EQ((Strings{"x"}), values(titles.Evaluate(other, otherNs)));
        EXPECT_EQ("Undefined namespace prefix", titles.Evaluate(other).error);
    }
    // Relative to a node.
    const XPathResult entries = EvaluateXPath(feed, "//a:entry", atom);
    ASSERT_EQ(2u, entries.nodes.size());
    EXPECT_EQ("Bob", tarn::XPathExpression("d:creator").Evaluate(*entries.nodes[1].node, {{{"d", kDc}}, 0}).string);
    tarn::XPathExpression moved(std::move(titles));
    EXPECT_TRUE(moved.valid());
    EXPECT_FALSE(titles.valid());
}

TEST(XPathTyped, NamespacedNodesReportTheirNames)
{
    Loaded document(kFeed);
    tarn::XPathOptions options{{{"_", kAtom}, {"creator", kDc}}};
    const XPathResult creators = EvaluateXPath(document, "//creator:creator | //@creator:lang", options);
    ASSERT_EQ(3u, creators.nodes.size());
    EXPECT_EQ("dc:lang", creators.nodes[0].name);
    EXPECT_EQ(XPathNode::Attribute, creators.nodes[0].kind);
    EXPECT_EQ("dc:creator", creators.nodes[1].name);
    EXPECT_EQ(kDc, creators.nodes[1].namespaceURI);
    const XPathResult title = EvaluateXPath(document, "/_:feed/_:title", options);
    ASSERT_EQ(1u, title.nodes.size());
    EXPECT_EQ("title", title.nodes[0].name);
    EXPECT_EQ(kAtom, title.nodes[0].namespaceURI);
    // Namespace nodes: prefix and URI, no handle; the copies libxml2 makes are freed with the
    // result (the sanitizer run checks).
    Strings names;
    for (const XPathNode& n : EvaluateXPath(document, "/*/namespace::*").nodes) {
        EXPECT_EQ(XPathNode::Namespace, n.kind);
        EXPECT_FALSE(n.node);
        names.push_back(n.name + "=" + n.value);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ((Strings{"=" + kAtom, "dc=" + kDc, "xml=http://www.w3.org/XML/1998/namespace"}), names);
    // An empty prefix cannot be bound.
    options.namespaces = {{"", kAtom}};
    EXPECT_FALSE(EvaluateXPath(document, "//title", options).ok());
}

TEST(XPathTyped, StepLimitStopsRunawayExpressions)
{
    std::string text = "<r>";
    for (int i = 0; i < 1500; ++i)
        text += "<a/>";
    Loaded document(text + "</r>");
    const tarn::XPathExpression runaway("//a[count(//a) > 0]");
    const XPathResult stopped = runaway.Evaluate(document, {{}, 100000});
    EXPECT_FALSE(stopped.ok());
    EXPECT_TRUE(stopped.stepLimitReached);
    EXPECT_EQ("XPath step limit reached", stopped.error);
    // The default lets this (over two million steps) finish.
    const XPathResult finished = runaway.Evaluate(document);
    EXPECT_TRUE(finished.ok()) << finished.error;
    EXPECT_EQ(1500u, finished.nodes.size());
}

TEST(XPathTyped, SetNodeTextReplacesWhatTheNodeHolds)
{
    tarn::XmlDocument document;
    ASSERT_EQ(0, document.Load(kMixed, false));
    auto first = [&](const char* xpath) { return EvaluateXPath(document, xpath).nodes.at(0); };
    struct Case { const char* xpath; const char* text; const char* check; const char* expected; };
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
    EXPECT_EQ(1.0, EvaluateXPath(document, "count(/doc/p/node())").number);
    EXPECT_EQ(XPathNode::Text, first("/doc/p/node()").kind);

    ASSERT_EQ(0, document.Load(kMixed, false));
    EXPECT_EQ(0, tarn::SetNodeText(first("//p/node()[4]"), "TAIL"));
    EXPECT_EQ(0, tarn::SetNodeText(first("//p/node()[3]"), "]]> inside"));
    EXPECT_EQ("<p>one <b>bold</b><![CDATA[]]]]><![CDATA[> inside]]>TAIL</p>", first("//p").node->OuterXml());
    // Sanitised like every text entering a tree.
    EXPECT_EQ(0, tarn::SetNodeText(first("//b"), std::string("x\x01y\xff", 4)));
    EXPECT_EQ("x?y\xEF\xBF\xBD", first("//b").value);
    for (const XPathNode& unsettable : {first("/"), first("/*/namespace::*"), XPathNode()})
        EXPECT_EQ(-1, tarn::SetNodeText(unsettable, "x"));
}

// --- Namespace bindings on the iterator requests ------------------------------------------------

Strings names(tarn::XPathNodeIterator* it)
{
    Strings out;
    for (tarn::XmlNodePtr n = it != nullptr ? it->GetFirst() : tarn::XmlNodePtr(); n; n = it->GetNext())
        out.push_back(n->GetName() + ":" + n->GetData());
    return out;
}

TEST(XPathNamespaces, IteratorRequestsWithBindings)
{
    Loaded document(kFeed);
    // Bindings from the document itself, default namespace renamed.
    tarn::XmlNamespaceBindings own;
    for (const auto& binding : document.GetRoot()->GetNamespacesInScope())
        own.emplace_back(binding.first.empty() ? "_" : binding.first, binding.second);
    struct Case { const char* xpath; tarn::XmlNamespaceBindings ns; Strings expected; };
    const Case cases[] = {
        // The default namespace bound to a prefix of the caller's choosing.
        {"//_:entry/_:title", {{"_", kAtom}}, {"title:First", "title:Second"}},
        // A prefix the document does not declare, bound to one of its URIs.
        {"//who:creator", {{"who", kDc}}, {"creator:Ann", "creator:Bob"}},
        // The document's own prefix bound to another URI selects nothing.
        {"//dc:creator", {{"dc", "urn:elsewhere"}}, {}},
        {"//_:entry[@id=2]/dc:creator", own, {"creator:Bob"}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, names(document.GetIterator(c.xpath, c.ns))) << c.xpath;
    // Handle requests: relative to the node.
    tarn::XmlNodePtr entry = EvaluateXPath(document, "//_:entry", {{{"_", kAtom}}, 0}).nodes.at(0).node;
    EXPECT_EQ((Strings{"creator:Ann"}), names(entry->GetIterator("dc:creator", {{"dc", kDc}})));
}

TEST(XPathNamespaces, FailuresKeepThePreviousResultQuietly)
{
    Loaded document(kFeed);
    ASSERT_EQ(2u, names(document.GetIterator("//d:creator", {{"d", kDc}})).size());
    const std::string printed = stderrOf([&] {
        { // The request without bindings registers nothing: the prefix is unbound.
            tarntest::QuietLibxml2 quiet;
            EXPECT_EQ(2u, names(document.GetIterator("//dc:creator")).size());
        }
        for (const char* xpath : {"//x:creator", "//d:creator["})
            EXPECT_EQ(2u, names(document.GetIterator(xpath, {{"d", kDc}})).size()) << xpath;
        EXPECT_EQ(2u, names(document.GetIterator("//creator", {{"", kDc}})).size());
    });
    EXPECT_EQ("", printed);
    EXPECT_EQ(nullptr, tarn::XmlDocument().GetIterator("/", {}));
    EXPECT_EQ(nullptr, tarn::XmlNode().GetIterator("/", {}));
}

} // namespace
