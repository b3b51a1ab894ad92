// Node handles: ownership in every state, names and text, serialisation, creation and moves.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <libxml/tree.h>

#include "LibxmlAllocations.h"
#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

// The deprecated AddChild overload is exercised on purpose.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

using tarn::XmlDocumentPtr;
using tarn::XmlNodePtr;

// The element child of `parent` named `name` (tests must not depend on the child lookup family).
xmlNode* child(xmlNode* parent, const char* name)
{
    for (xmlNode* c = parent->children; c != nullptr; c = c->next)
        if (c->type == XML_ELEMENT_NODE && xmlStrEqual(c->name, reinterpret_cast<const xmlChar*>(name)))
            return c;
    return nullptr;
}

XmlNodePtr handleOn(xmlNode* target)
{
    XmlNodePtr handle = tarn::CreateXmlNode();
    handle->Initialize(target);
    return handle;
}

XmlDocumentPtr load(const std::string& text)
{
    XmlDocumentPtr doc = tarn::CreateXmlDocument(text);
    EXPECT_TRUE(doc) << text;
    return doc;
}

// Starts the library and warms libxml2's lazily made globals up, so that allocation counts that
// follow see only what the code under test does.
void warmUp()
{
    XmlDocumentPtr doc = tarn::CreateXmlDocument("<w><x>t</x></w>");
    XmlNodePtr node = tarn::CreateXmlNode("w", "t");
    node->SerializeOuterXml();
    doc->GetRoot()->OuterXml();
}

// --- Ownership -------------------------------------------------------------------------------------

enum class State { Empty, Referring, Owning, OwningElsewhere };
enum class Path { Drop, Remove, InitializeWithName, AddChildToDocument, AddSiblingToDocument };
enum class Order { HandleFirst, DocumentFirst };

const char* name(State s)
{
    switch (s) {
    case State::Empty: return "Empty";
    case State::Referring: return "Referring";
    case State::Owning: return "Owning";
    default: return "OwningElsewhere";
    }
}
const char* name(Path p)
{
    switch (p) {
    case Path::Drop: return "Drop";
    case Path::Remove: return "Remove";
    case Path::InitializeWithName: return "InitializeWithName";
    case Path::AddChildToDocument: return "AddChild";
    default: return "AddSibling";
    }
}

// Every state of the handle, every way of ending it, both drop orders: no leak (counted blocks
// back to zero), no double free (ASan), and the document shows exactly what moved or went.
TEST(Ownership, EveryStateEveryPathEveryDropOrder)
{
    warmUp();
    for (State state : {State::Empty, State::Referring, State::Owning, State::OwningElsewhere})
        for (Path path : {Path::Drop, Path::Remove, Path::InitializeWithName, Path::AddChildToDocument,
                          Path::AddSiblingToDocument})
            for (Order order : {Order::HandleFirst, Order::DocumentFirst}) {
                SCOPED_TRACE(std::string(name(state)) + " / " + name(path) +
                             (order == Order::HandleFirst ? " / handle dropped first" : " / document dropped first"));
                tarntest::LibxmlAllocations allocations;
                {
                    XmlDocumentPtr doc = load("<r><k>v</k></r>");
                    xmlNode* const root = doc->GetRoot()->getlibXML2Node();
                    xmlNode* const k = child(root, "k");
                    XmlNodePtr handle = tarn::CreateXmlNode();
                    if (state == State::Referring)
                        handle->Initialize(k);
                    if (state == State::Owning || state == State::OwningElsewhere) {
                        ASSERT_TRUE(handle->Initialize("o", "t"));
                        ASSERT_EQ(handle->AddChild("deep", "x"), 0);
                    }
                    if (state == State::OwningElsewhere)
                        handle->Initialize(k);
                    const bool hasNode = state != State::Empty;

                    std::string expected = "<r><k>v</k></r>";
                    switch (path) {
                    case Path::Drop:
                        break;
                    case Path::Remove:
                        handle->Remove();
                        if (state == State::Referring || state == State::OwningElsewhere)
                            expected = "<r/>";
                        EXPECT_EQ(handle->OuterXml(), "");
                        break;
                    case Path::InitializeWithName:
                        EXPECT_TRUE(handle->Initialize("n", "1"));
                        EXPECT_EQ(handle->OuterXml(), "<n>1</n>");
                        break;
                    case Path::AddChildToDocument:
                        EXPECT_EQ(doc->GetRoot()->AddChild(handle), hasNode ? 0 : -3);
                        if (state == State::Owning)
                            expected = "<r><k>v</k><o>t<deep>x</deep></o></r>";
                        if (state == State::Referring || state == State::OwningElsewhere)
                            expected = "<r><k>v</k></r>"; // k was already the last child
                        if (hasNode) {
                            EXPECT_EQ(handle->OuterXml(), state == State::Owning ? "<o>t<deep>x</deep></o>" : "<k>v</k>");
                        }
                        break;
                    case Path::AddSiblingToDocument: {
                        // The anchor's last child is k; a second child gives room to move k.
                        ASSERT_EQ(doc->GetRoot()->AddChild("z", ""), 0);
                        const int result = doc->GetRoot()->AddSibling(handle);
                        EXPECT_EQ(result, hasNode ? 0 : -1);
                        expected = "<r><k>v</k><z/></r>";
                        if (state == State::Owning)
                            expected = "<r><k>v</k><z/><o>t<deep>x</deep></o></r>";
                        if (state == State::Referring || state == State::OwningElsewhere)
                            expected = "<r><z/><k>v</k></r>";
                        EXPECT_EQ(handle->OuterXml(), "");
                        break;
                    }
                    }
                    EXPECT_EQ(doc->GetRoot()->OuterXml(), expected);
                    if (order == Order::HandleFirst) {
                        handle.reset();
                        EXPECT_EQ(doc->GetRoot()->OuterXml(), expected); // the handle freed nothing of the tree
                        doc.reset();
                    } else {
                        doc.reset();
                        handle.reset();
                    }
                }
                EXPECT_EQ(allocations.outstanding(), 0);
            }
}

TEST(Ownership, DroppingAnOwningHandleFreesTheWholeSubtree)
{
    warmUp();
    tarntest::LibxmlAllocations allocations;
    {
        XmlNodePtr node = tarn::CreateXmlNode("a", "b");
        node->AddChild("c", 1);
        node->AddChildWithEscData("d", "&lt;&#65;");
        EXPECT_GT(allocations.outstanding(), 0);
    }
    EXPECT_EQ(allocations.outstanding(), 0);
}

TEST(Ownership, RemoveOnAnOwningHandleFreesOnceAndTheHandleIsEmptyAfter)
{
    warmUp();
    tarntest::LibxmlAllocations allocations;
    XmlNodePtr node = tarn::CreateXmlNode("a", "b");
    node->Remove();
    EXPECT_EQ(allocations.outstanding(), 0); // freed by Remove, not later
    EXPECT_EQ(node->getlibXML2Node(), nullptr);
    node->Remove(); // empty handle: nothing happens
    node.reset();
    EXPECT_EQ(allocations.outstanding(), 0);
}

TEST(Ownership, AttachedNodeLivesWithTheDocumentNotTheHandle)
{
    warmUp();
    tarntest::LibxmlAllocations allocations;
    XmlDocumentPtr doc = load("<r/>");
    const long withDocument = allocations.outstanding();
    XmlNodePtr node = tarn::CreateXmlNode("a", "b");
    ASSERT_EQ(doc->GetRoot()->AddChild(node), 0);
    EXPECT_EQ(node->GetName(), "a");
    node.reset();
    EXPECT_GT(allocations.outstanding(), withDocument);
    EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><a>b</a></r>");
    doc.reset();
    EXPECT_EQ(allocations.outstanding(), 0);
}

TEST(Ownership, SetCreatedNodeFreesThePreviousAndOnNodeMovedForgetsWithoutFreeing)
{
    warmUp();
    tarntest::LibxmlAllocations allocations;
    XmlNodePtr node = tarn::CreateXmlNode("a", "b");
    xmlNode* other = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("c"));
    node->Initialize(other);
    node->setCreatedNode(other); // frees <a>b</a>
    EXPECT_EQ(node->OuterXml(), "<c/>");
    node->onNodeMoved();
    node.reset();
    EXPECT_EQ(allocations.outstanding(), 2); // <c/> (node and name) was forgotten, not freed
    xmlFreeNode(other);
    EXPECT_EQ(allocations.outstanding(), 0);
}

TEST(Ownership, DefaultHandleHasNoNode)
{
    XmlNodePtr node = tarn::CreateXmlNode();
    EXPECT_EQ(node->getlibXML2Node(), nullptr);
    EXPECT_NE(tarn::g_tempDoc, nullptr);
}

// --- Name and text ---------------------------------------------------------------------------------

TEST(NameAndText, NamesOfHandles)
{
    XmlNodePtr empty = tarn::CreateXmlNode();
    EXPECT_EQ(empty->GetName(), "");
    EXPECT_TRUE(empty->IsName(""));
    EXPECT_FALSE(empty->IsName("a"));
    EXPECT_EQ(empty->SetName("a"), -1);

    XmlDocumentPtr doc = load("<p:r xmlns:p=\"urn:x\">t<!--c--></p:r>");
    XmlNodePtr root = doc->GetRoot();
    EXPECT_EQ(root->GetName(), "r"); // local name, without the prefix
    EXPECT_TRUE(root->IsName("r"));
    EXPECT_FALSE(root->IsName("R"));
    EXPECT_FALSE(root->IsName("r "));
    XmlNodePtr text = handleOn(root->getlibXML2Node()->children);
    EXPECT_EQ(text->GetName(), "text");
    EXPECT_EQ(text->GetData(), ""); // a text node has no text child
    EXPECT_EQ(handleOn(root->getlibXML2Node()->last)->GetName(), "comment");
    XmlNodePtr document = handleOn(reinterpret_cast<xmlNode*>(root->getlibXML2Node()->doc));
    EXPECT_EQ(document->GetName(), ""); // a document node has no name

    XmlNodePtr node = tarn::CreateXmlNode("a", "");
    EXPECT_EQ(node->SetName("b<c"), 0); // stored as given
    EXPECT_EQ(node->GetName(), "b<c");
}

TEST(NameAndText, SetDataReplacesOnlyTheFirstTextChild)
{
    struct Case {
        const char* document;
        const char* before;
        const char* text;
        const char* outer;
        const char* after;
    };
    const Case cases[] = {
        {"<a>x</a>", "x", "y", "<a>y</a>", "y"},
        {"<a/>", "", "", "<a></a>", ""},                             // an empty text node is appended
        {"<a>x</a>", "x", "", "<a/>", ""},                           // the text node is removed
        {"<a>x<b/>y</a>", "x", "z", "<a>z<b/>y</a>", "z"},           // mixed content keeps its order
        {"<a><b/>y</a>", "y", "", "<a><b/></a>", ""},                // first text child after an element
        {"<a><![CDATA[c]]></a>", "", "t", "<a><![CDATA[c]]>t</a>", "t"}, // CDATA does not count
        {"<a><!--c-->x</a>", "x", "a<b&c", "<a><!--c-->a&lt;b&amp;c</a>", "a<b&c"},
        {"<a/>", "", "bad\xff\x01", "<a>bad\xef\xbf\xbd?</a>", "bad\xef\xbf\xbd?"}, // repaired
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.document) + " <- " + c.text);
        XmlDocumentPtr doc = load(c.document);
        XmlNodePtr root = doc->GetRoot();
        EXPECT_EQ(root->GetData(), c.before);
        EXPECT_EQ(root->SetData(c.text), 0);
        EXPECT_EQ(root->OuterXml(), c.outer);
        EXPECT_EQ(root->GetData(), c.after);
    }
    XmlNodePtr empty = tarn::CreateXmlNode();
    EXPECT_EQ(empty->SetData("x"), -1);
    EXPECT_EQ(empty->ReplaceData("x"), -1);
    EXPECT_EQ(empty->SetDataInt32(1), -1);
    EXPECT_EQ(empty->GetData(), "");
    EXPECT_EQ(empty->GetDataInt32(), 0);
    EXPECT_FALSE(empty->GetDataBool());
}

TEST(NameAndText, TypedSettersWriteThePlainTextOfTheirValue)
{
    struct Case {
        const char* label;
        std::function<int(tarn::XmlNode&)> set;
        const char* text;
    };
    const std::vector<Case> cases = {
        {"Number", [](tarn::XmlNode& n) { return n.SetDataNumber(-2147483647 - 1); }, "-2147483648"},
        {"Int32", [](tarn::XmlNode& n) { return n.SetDataInt32(0); }, "0"},
        {"ULONG", [](tarn::XmlNode& n) { return n.SetDataULONG(4294967295u); }, "4294967295"},
        {"UInt32", [](tarn::XmlNode& n) { return n.SetDataUInt32(7u); }, "7"},
        {"Int64", [](tarn::XmlNode& n) { return n.SetDataInt64(-9223372036854775807LL - 1); }, "-9223372036854775808"},
        {"UInt64", [](tarn::XmlNode& n) { return n.SetDataUInt64(18446744073709551615ULL); }, "18446744073709551615"},
        {"Double", [](tarn::XmlNode& n) { return n.SetDataDouble(0.5); }, "0.5"},
        {"Replace", [](tarn::XmlNode& n) { return n.ReplaceData("r"); }, "r"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlNodePtr node = tarn::CreateXmlNode("v", "old");
        EXPECT_EQ(c.set(*node), 0);
        EXPECT_EQ(node->GetData(), c.text);
        EXPECT_EQ(node->OuterXml(), std::string("<v>") + c.text + "</v>");
    }
}

TEST(NameAndText, TypedGettersConvertTheFirstTextChild)
{
    XmlNodePtr node = tarn::CreateXmlNode("v", "-5");
    EXPECT_EQ(node->GetDataNumber(), -5);
    EXPECT_EQ(node->GetDataInt32(), -5);
    EXPECT_EQ(node->GetDataInt64(), -5);
    node->SetData("18446744073709551615");
    EXPECT_EQ(node->GetDataUInt64(), 18446744073709551615ULL);
    node->SetData("0x10");
    EXPECT_EQ(node->GetDataUINT64(), 16u); // the identifier reading takes hexadecimal
    EXPECT_EQ(node->GetDataUInt64(), 0u);
    node->SetData("4294967295");
    EXPECT_EQ(node->GetDataUInt(), 4294967295u);
    EXPECT_EQ(node->GetDataULONG(), 4294967295u);
    EXPECT_EQ(node->GetDataUInt32(), 4294967295u);
    node->SetData("2.25");
    EXPECT_DOUBLE_EQ(node->GetDataDouble(), 2.25);
    // Only the first text child counts: "1" after a CDATA section, not "9" inside it.
    XmlDocumentPtr doc = load("<v><![CDATA[9]]>1<b>2</b>3</v>");
    EXPECT_EQ(doc->GetRoot()->GetDataInt32(), 1);
}

TEST(NameAndText, GetDataBoolFollowsTheNodeTextRule)
{
    const std::pair<const char*, bool> cases[] = {
        {"true", true}, {"false", false}, {"-1", true}, {"0", false}, {"1", true}, {"Y", true},
        {"N", false},   {"TRUE", true},   {"True", true}, {"y", false}, {"yes", false}, {"no", false},
        {"", false},    {" true", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        XmlNodePtr node = tarn::CreateXmlNode("b", c.first);
        EXPECT_EQ(node->GetDataBool(), c.second);
    }
}

// --- Serialisation ---------------------------------------------------------------------------------

TEST(Serialisation, OuterAndInnerXml)
{
    struct Case {
        const char* document;
        const char* outer;
        const char* inner;
    };
    const Case cases[] = {
        {"<a x=\"1\">t</a>", "<a x=\"1\">t</a>", "t"},
        {"<a/>", "<a/>", ""},
        {"<a></a>", "<a/>", ""},
        {"<a x=\"&gt;\">1 &gt; 0</a>", "<a x=\"&gt;\">1 &gt; 0</a>", "1 &gt; 0"},
        {"<a><b>1</b><c><d/></c></a>", "<a><b>1</b><c><d/></c></a>", "<b>1</b><c><d/></c>"},
        {"<a q='\"'>\xc3\xa9</a>", "<a q=\"&quot;\">\xc3\xa9</a>", "\xc3\xa9"},
        {"<a xmlns=\"urn:n\"><b/></a>", "<a xmlns=\"urn:n\"><b/></a>", "<b/>"},
    };
    tarntest::LogCapture capture;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.document);
        XmlDocumentPtr doc = load(c.document);
        EXPECT_EQ(doc->GetRoot()->OuterXml(), c.outer);
        EXPECT_EQ(doc->GetRoot()->getOuterXml(), c.outer);
        EXPECT_EQ(doc->GetRoot()->InnerXml(), c.inner);
    }
    EXPECT_TRUE(capture.assertions().empty());
}

TEST(Serialisation, InnerXmlOfANodeWithoutMarkupIsReported)
{
    XmlDocumentPtr doc = load("<a>t</a>");
    const XmlNodePtr handles[] = {tarn::CreateXmlNode(), handleOn(doc->GetRoot()->getlibXML2Node()->children)};
    for (const XmlNodePtr& handle : handles) {
        tarntest::LogCapture capture;
        EXPECT_EQ(handle->InnerXml(), "");
        const auto reports = capture.assertions();
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].file, "../tarnshared/xml/XmlNode");
        EXPECT_EQ(reports[0].line, 975);
    }
}

TEST(Serialisation, SerializeOuterXmlWritesACompleteDocument)
{
    XmlNodePtr node = tarn::CreateXmlNode("a", "t");
    xmlSetProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>("x"), reinterpret_cast<const xmlChar*>("1"));
    EXPECT_EQ(node->OuterXml(), "<a x=\"1\">t</a>");
    EXPECT_EQ(node->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a x=\"1\">t</a>\n");
    // Repeatable, and the scratch document is left without children each time.
    EXPECT_EQ(node->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a x=\"1\">t</a>\n");
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
    EXPECT_EQ(tarn::g_tempDoc->last, nullptr);
    EXPECT_EQ(tarn::CreateXmlNode()->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n");
}

TEST(Serialisation, SerializeOuterXmlTakesTheNodeOutOfItsDocument)
{
    XmlDocumentPtr doc = load("<r><a>1</a><b>2</b></r>");
    XmlNodePtr a = handleOn(child(doc->GetRoot()->getlibXML2Node(), "a"));
    EXPECT_EQ(a->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a>1</a>\n");
    EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><b>2</b></r>");
    // The node belongs to nobody now: not to the scratch document, not to its old tree. It can be
    // put back, which also proves no link into the scratch document was left behind.
    EXPECT_EQ(a->getlibXML2Node()->parent, nullptr);
    ASSERT_EQ(doc->GetRoot()->AddChild(a), 0);
    EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><b>2</b><a>1</a></r>");
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
}

TEST(Serialisation, ScratchDocumentAndLockAreReleasedWhenWritingFails)
{
    warmUp();
    XmlNodePtr node = tarn::CreateXmlNode("a", "t");
    std::string written = "unset";
    {
        const tarntest::QuietLibxml2 quiet;
        tarntest::LibxmlAllocations allocations;
        allocations.failAfter(0);
        written = node->SerializeOuterXml();
    }
    EXPECT_EQ(written, "");
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
    // A lock left held would hang the next call here (the mutex is not recursive).
    EXPECT_EQ(node->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a>t</a>\n");
}

TEST(Serialisation, OutOfMemoryRaisesBadAllocAndLeaksNothing)
{
    warmUp();
    XmlNodePtr node = tarn::CreateXmlNode("a", "t");
    const tarntest::QuietLibxml2 quiet;
    tarntest::LibxmlAllocations allocations;
    allocations.failAfter(0);
    EXPECT_THROW(node->OuterXml(), std::bad_alloc);
    xmlNode* made = nullptr;
    EXPECT_THROW(tarn::XmlNode::createLibXML2Node(nullptr, "n", "v", &made), std::bad_alloc);
    EXPECT_EQ(made, nullptr);
    allocations.failAfter(1); // the element is made, its text node is not
    EXPECT_THROW(tarn::XmlNode::createLibXML2Node(nullptr, "n", "v", &made), std::bad_alloc);
    EXPECT_EQ(made, nullptr);
    allocations.failAfter(2); // the element and its name; the text node fails
    EXPECT_THROW(node->AddChild("n", "v"), std::bad_alloc);
    allocations.allowAll();
    EXPECT_EQ(allocations.outstanding(), 0);
    EXPECT_EQ(node->OuterXml(), "<a>t</a>");
}

TEST(Serialisation, XmlEncodeUsesLibxml2sEncoder)
{
    const std::pair<const char*, const char*> cases[] = {
        {"a<b & \"c\"", "a&lt;b &amp; \"c\""},
        {"", ""},
        {"x>y'\t\n", "x&gt;y'\t\n"},
        {"\r", "&#13;"},
        {"\xc3\xa9", "&#xE9;"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        EXPECT_EQ(tarn::XmlNode::XmlEncode(std::string(c.first)), c.second);
        EXPECT_EQ(tarn::XmlNode::XmlEncode(c.first), c.second);
    }
    EXPECT_EQ(tarn::XmlNode::XmlEncode(static_cast<const char*>(nullptr)), "");
}

// Several threads serialise their own detached nodes through the one scratch document at once.
TEST(Serialisation, SerializeOuterXmlOnSeveralThreads)
{
    tarn::libXMLStartup();
    constexpr int kThreads = 4;
    constexpr int kIterations = 3000;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &wrong] {
            const std::string nodeName = "n" + std::to_string(t);
            XmlNodePtr node = tarn::CreateXmlNode(nodeName, t);
            node->AddChild("c", "x");
            const std::string expected = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<" + nodeName + ">" +
                                         std::to_string(t) + "<c>x</c></" + nodeName + ">\n";
            for (int i = 0; i < kIterations; ++i) {
                if (node->SerializeOuterXml() != expected)
                    ++wrong;
                if (i % 100 == 0) {
                    node = tarn::CreateXmlNode(nodeName, t);
                    node->AddChild("c", "x");
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
}

// --- Creation and insertion ------------------------------------------------------------------------

TEST(Creation, AddChildWithValues)
{
    struct Case {
        const char* label;
        std::function<int(tarn::XmlNode&)> add;
        const char* outer;
    };
    const std::vector<Case> cases = {
        {"empty text", [](tarn::XmlNode& n) { return n.AddChild("v", std::string()); }, "<v/>"},
        {"markup chars", [](tarn::XmlNode& n) { return n.AddChild("v", std::string("1 < 2")); }, "<v>1 &lt; 2</v>"},
        {"literal entity", [](tarn::XmlNode& n) { return n.AddChild("v", std::string("1 &lt; 2")); },
         "<v>1 &amp;lt; 2</v>"},
        {"escaped", [](tarn::XmlNode& n) { return n.AddChildWithEscData("v", "1 &lt; 2&#65;"); }, "<v>1 &lt; 2A</v>"},
        {"escaped empty", [](tarn::XmlNode& n) { return n.AddChildWithEscData("v", ""); }, "<v/>"},
        {"escaped entity", [](tarn::XmlNode& n) { return n.AddChildWithEscData("v", "&e;"); }, "<v>&e;</v>"},
        {"bool", [](tarn::XmlNode& n) { return n.AddChild("v", true); }, "<v>true</v>"},
        {"int", [](tarn::XmlNode& n) { return n.AddChild("n", -5); }, "<n>-5</n>"},
        {"unsigned", [](tarn::XmlNode& n) { return n.AddChild("n", 4294967295u); }, "<n>4294967295</n>"},
        {"long long", [](tarn::XmlNode& n) { return n.AddChild("n", -9223372036854775807LL - 1); },
         "<n>-9223372036854775808</n>"},
        {"unsigned long long", [](tarn::XmlNode& n) { return n.AddChild("n", 18446744073709551615ULL); },
         "<n>18446744073709551615</n>"},
        {"double", [](tarn::XmlNode& n) { return n.AddChild("n", 1.5); }, "<n>1.5</n>"},
        {"char*", [](tarn::XmlNode& n) { return n.AddChild("c", "z"); }, "<c>z</c>"},
        {"sanitised", [](tarn::XmlNode& n) { return n.AddChild("a\x01", std::string("\x02\xc0")); },
         "<a?>?\xef\xbf\xbd</a?>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlNodePtr parent = tarn::CreateXmlNode("p", "");
        EXPECT_EQ(c.add(*parent), 0);
        EXPECT_EQ(parent->InnerXml(), c.outer);
        XmlNodePtr empty = tarn::CreateXmlNode();
        EXPECT_EQ(c.add(*empty), -3);
    }
}

TEST(Creation, DeprecatedAddChildWritesATraceRecordOnEveryCall)
{
    XmlNodePtr parent = tarn::CreateXmlNode("p", "");
    {
        tarntest::LogCapture capture(log4cplus::TRACE_LOG_LEVEL);
        EXPECT_EQ(parent->AddChild("first", "1"), 0);
        EXPECT_EQ(parent->AddChild("second", static_cast<const char*>(nullptr)), -3);
        EXPECT_EQ(tarn::CreateXmlNode()->AddChild("third", "3"), -3);
        ASSERT_EQ(capture.records().size(), 3u);
        const char* names[] = {"first", "second", "third"};
        for (int i = 0; i < 3; ++i) {
            const tarntest::LogRecord& record = capture.records()[i];
            EXPECT_EQ(record.level, log4cplus::TRACE_LOG_LEVEL);
            EXPECT_EQ(record.message, std::string("tarn::AddChild char* being called with name ") + names[i] +
                                          " is deprecated!");
            EXPECT_EQ(record.file, "../tarnshared/xml/XmlNode");
            EXPECT_EQ(record.line, 1153);
            EXPECT_EQ(record.function, "RESULTX tarn::XmlNode::AddChild(const string&, const char*)");
        }
    }
    {
        tarntest::LogCapture capture(log4cplus::DEBUG_LOG_LEVEL);
        EXPECT_EQ(parent->AddChild("fourth", "4"), 0);
        EXPECT_TRUE(capture.records().empty());
    }
    EXPECT_EQ(parent->OuterXml(), "<p><first>1</first><fourth>4</fourth></p>");
}

TEST(Creation, Factories)
{
    struct Case {
        const char* label;
        XmlNodePtr node;
        const char* outer;
    };
    const std::vector<Case> cases = {
        {"text", tarn::CreateXmlNode("a", std::string("b")), "<a>b</a>"},
        {"char*", tarn::CreateXmlNode("a", "b"), "<a>b</a>"},
        {"bool", tarn::CreateXmlNode("a", false), "<a>false</a>"},
        {"int", tarn::CreateXmlNode("a", -1), "<a>-1</a>"},
        {"unsigned", tarn::CreateXmlNode("a", 1u), "<a>1</a>"},
        {"long long", tarn::CreateXmlNode("a", 5LL), "<a>5</a>"},
        {"unsigned long long", tarn::CreateXmlNode("a", 6ULL), "<a>6</a>"},
        {"double", tarn::CreateXmlNode("a", 1e6), "<a>1e+06</a>"},
        {"empty", tarn::CreateXmlNode("a", std::string()), "<a/>"},
        {"no name", tarn::CreateXmlNode(), ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        ASSERT_TRUE(c.node);
        EXPECT_EQ(c.node->OuterXml(), c.outer);
    }
    EXPECT_FALSE(tarn::CreateXmlNode("a", static_cast<const char*>(nullptr)));

    XmlNodePtr handle = tarn::CreateXmlNode("old", "");
    EXPECT_EQ(tarn::Create(handle), 0);
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->getlibXML2Node(), nullptr);
    EXPECT_EQ(tarn::Create(handle, "n", "v"), 0);
    EXPECT_EQ(handle->OuterXml(), "<n>v</n>");
    xmlNode* out = nullptr;
    EXPECT_EQ(tarn::XmlNode::createLibXML2Node(nullptr, "n", "v", nullptr), -3);
    EXPECT_EQ(tarn::XmlNode::createLibXML2NodeWithEscData(nullptr, "n", "v", nullptr), -3);
    ASSERT_EQ(tarn::XmlNode::createLibXML2NodeWithEscData(nullptr, "n", "&amp;", &out), 0);
    XmlNodePtr adopted = tarn::CreateXmlNode();
    adopted->Initialize(out);
    adopted->setCreatedNode(out);
    EXPECT_EQ(adopted->OuterXml(), "<n>&amp;</n>");
    EXPECT_EQ(adopted->GetData(), "&");
}

TEST(Moves, AddChildMovesANodeOutOfAnotherDocument)
{
    XmlDocumentPtr from = load("<f><m>1</m><n/></f>");
    XmlDocumentPtr to = load("<t/>");
    XmlNodePtr m = handleOn(child(from->GetRoot()->getlibXML2Node(), "m"));
    ASSERT_EQ(to->GetRoot()->AddChild(m), 0);
    EXPECT_EQ(from->GetRoot()->OuterXml(), "<f><n/></f>");
    EXPECT_EQ(to->GetRoot()->OuterXml(), "<t><m>1</m></t>");
    EXPECT_EQ(m->getlibXML2Node()->doc, to->GetRoot()->getlibXML2Node()->doc);
    EXPECT_EQ(m->SetData("2"), 0); // the handle follows the node
    from.reset();
    EXPECT_EQ(to->GetRoot()->OuterXml(), "<t><m>2</m></t>");
}

TEST(Moves, NodeUnderItselfOrADescendantIsRefused)
{
    XmlDocumentPtr doc = load("<r><a><b><c/></b></a></r>");
    xmlNode* const a = child(doc->GetRoot()->getlibXML2Node(), "a");
    xmlNode* const b = child(a, "b");
    xmlNode* const c = child(b, "c");
    struct Case {
        const char* label;
        xmlNode* parent;
        xmlNode* moved;
    };
    const Case cases[] = {{"itself", a, a}, {"child", b, a}, {"grandchild", c, a}, {"root under leaf", c,
                                                                                     doc->GetRoot()->getlibXML2Node()}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.label);
        XmlNodePtr parent = handleOn(k.parent);
        XmlNodePtr moved = handleOn(k.moved);
        EXPECT_EQ(parent->AddChild(moved), -1);
        EXPECT_EQ(parent->AddSibling(moved), -1);
        EXPECT_EQ(moved->getlibXML2Node(), k.moved);
        EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><a><b><c/></b></a></r>");
    }
    // The same for a detached tree: the owning handle keeps its node.
    XmlNodePtr owner = tarn::CreateXmlNode("o", "");
    owner->AddChild("p", "");
    XmlNodePtr p = handleOn(owner->getlibXML2Node()->children);
    p->AddChild("leaf", "");
    EXPECT_EQ(p->AddChild(owner), -1);
    EXPECT_EQ(owner->OuterXml(), "<o><p><leaf/></p></o>");
}

TEST(Moves, MergedTextNodeLeavesTheHandleOnTheSurvivor)
{
    warmUp();
    tarntest::LibxmlAllocations allocations;
    {
        XmlDocumentPtr doc = load("<r>a</r>");
        XmlNodePtr root = doc->GetRoot();
        // An owned text node, made by hand and handed to a handle.
        xmlNode* text = xmlNewText(reinterpret_cast<const xmlChar*>("b"));
        XmlNodePtr moved = tarn::CreateXmlNode();
        moved->Initialize(text);
        moved->setCreatedNode(text);
        ASSERT_EQ(root->AddChild(moved), 0);
        // libxml2 merged "b" into "a" and freed it; the handle refers to the surviving node.
        EXPECT_EQ(moved->getlibXML2Node(), root->getlibXML2Node()->children);
        EXPECT_EQ(moved->OuterXml(), "ab");
        EXPECT_EQ(root->OuterXml(), "<r>ab</r>");

        // The same through AddSibling: a text node after a text last child.
        XmlDocumentPtr other = load("<o>x<q>y</q></o>");
        XmlNodePtr fromOther = handleOn(other->GetRoot()->getlibXML2Node()->children);
        ASSERT_EQ(root->AddSibling(fromOther), 0);
        EXPECT_EQ(fromOther->getlibXML2Node(), nullptr);
        EXPECT_EQ(root->OuterXml(), "<r>abx</r>");
        EXPECT_EQ(other->GetRoot()->OuterXml(), "<o><q>y</q></o>");
    }
    EXPECT_EQ(allocations.outstanding(), 0);
}

TEST(Moves, AddSiblingEdgeCases)
{
    XmlDocumentPtr doc = load("<r><a/></r>");
    XmlNodePtr root = doc->GetRoot();
    EXPECT_EQ(root->AddSibling(XmlNodePtr()), -3);
    EXPECT_EQ(tarn::CreateXmlNode()->AddSibling(tarn::CreateXmlNode("x", "")), -3);
    EXPECT_EQ(root->AddSibling(tarn::CreateXmlNode()), -1);

    // An anchor without children refuses and the moved handle keeps owning its node.
    XmlNodePtr leaf = handleOn(child(root->getlibXML2Node(), "a"));
    XmlNodePtr moved = tarn::CreateXmlNode("m", "1");
    xmlNode* const before = moved->getlibXML2Node();
    EXPECT_EQ(leaf->AddSibling(moved), -1);
    EXPECT_EQ(moved->getlibXML2Node(), before);
    EXPECT_EQ(moved->OuterXml(), "<m>1</m>");

    // The last child after itself: refused, nothing changes.
    EXPECT_EQ(root->AddSibling(handleOn(child(root->getlibXML2Node(), "a"))), -1);
    EXPECT_EQ(root->OuterXml(), "<r><a/></r>");

    // Placed after the anchor's last child, i.e. as its new last child, not after the anchor.
    EXPECT_EQ(root->AddSibling(moved), 0);
    EXPECT_EQ(moved->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->OuterXml(), "<r><a/><m>1</m></r>");

    // AddChild with handles that have no node.
    EXPECT_EQ(root->AddChild(XmlNodePtr()), -3);
    EXPECT_EQ(root->AddChild(tarn::CreateXmlNode()), -3);
    EXPECT_EQ(tarn::CreateXmlNode()->AddChild(tarn::CreateXmlNode("x", "")), -3);
}

TEST(Moves, DetachedNodeBuiltThenMovedSerialisesInItsNewDocument)
{
    XmlDocumentPtr doc = load("<r/>");
    XmlNodePtr node = tarn::CreateXmlNode("a", "b");
    node->AddChild("c", 3);
    EXPECT_EQ(node->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a>b<c>3</c></a>\n");
    ASSERT_EQ(doc->GetRoot()->AddChild(node), 0);
    EXPECT_EQ(node->GetName(), "a");
    node.reset();
    EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><a>b<c>3</c></a></r>");
}

} // namespace
