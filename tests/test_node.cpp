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
#include "tarnxml/XmlIterators.h"
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

XmlDocumentPtr load(const std::string& text) { return tarn::CreateXmlDocument(text); }

// Starts the library and warms libxml2's lazily made globals up, so that allocation counts that
// follow see only what the code under test does.
void warmUp()
{
    tarn::CreateXmlNode("w", "t")->SerializeOuterXml();
    tarn::CreateXmlDocument("<w><x>t</x></w>")->GetRoot()->OuterXml();
}

const std::string kDecl = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// --- Ownership -------------------------------------------------------------------------------------

enum class State { Empty, Referring, Owning, OwningElsewhere };
enum class Path { Drop, Remove, InitializeWithName, AddChild, AddSibling };

// Every handle state, every way of ending it, both drop orders: no leak (counted blocks back to
// zero), no double free (ASan), and the document shows exactly what moved or went.
TEST(Ownership, EveryStateEveryPathEveryDropOrder)
{
    warmUp();
    for (int st = 0; st < 4; ++st)
        for (int pa = 0; pa < 5; ++pa)
            for (bool handleFirst : {true, false}) {
                const auto state = static_cast<State>(st);
                const auto path = static_cast<Path>(pa);
                SCOPED_TRACE(std::to_string(st) + "/" + std::to_string(pa) + (handleFirst ? "/handle first" : "/doc first"));
                const bool owning = state == State::Owning, hasNode = state != State::Empty;
                const bool refers = state == State::Referring || state == State::OwningElsewhere;
                tarntest::LibxmlAllocations allocations;
                {
                    XmlNodePtr handle = tarn::CreateXmlNode(); // declared first: dropped after doc
                    XmlDocumentPtr doc = load("<r><k>v</k></r>");
                    xmlNode* const k = child(doc->GetRoot()->getlibXML2Node(), "k");
                    if (state == State::Referring)
                        handle->Initialize(k);
                    if (owning || state == State::OwningElsewhere) {
                        ASSERT_TRUE(handle->Initialize("o", "t"));
                        ASSERT_EQ(handle->AddChild("deep", "x"), 0);
                    }
                    if (state == State::OwningElsewhere)
                        handle->Initialize(k);
                    std::string expected = "<r><k>v</k></r>";
                    if (path == Path::Remove) {
                        const long before = allocations.outstanding();
                        handle->Remove();
                        if (owning) {
                            EXPECT_LT(allocations.outstanding(), before); // freed now, not at the drop
                        }
                        if (refers)
                            expected = "<r/>";
                        EXPECT_EQ(handle->OuterXml(), "");
                        handle->Remove(); // again: nothing left to do
                    } else if (path == Path::InitializeWithName) {
                        EXPECT_TRUE(handle->Initialize("n", "1"));
                        EXPECT_EQ(handle->OuterXml(), "<n>1</n>");
                    } else if (path == Path::AddChild) {
                        EXPECT_EQ(doc->GetRoot()->AddChild(handle), hasNode ? 0 : -3);
                        if (owning)
                            expected = "<r><k>v</k><o>t<deep>x</deep></o></r>";
                        if (hasNode) {
                            EXPECT_EQ(handle->OuterXml(), owning ? "<o>t<deep>x</deep></o>" : "<k>v</k>");
                        }
                    } else if (path == Path::AddSibling) {
                        ASSERT_EQ(doc->GetRoot()->AddChild("z", ""), 0); // room to move k
                        EXPECT_EQ(doc->GetRoot()->AddSibling(handle), hasNode ? 0 : -1);
                        expected = owning ? "<r><k>v</k><z/><o>t<deep>x</deep></o></r>"
                                          : refers ? "<r><z/><k>v</k></r>" : "<r><k>v</k><z/></r>";
                        EXPECT_EQ(handle->OuterXml(), "");
                    }
                    EXPECT_EQ(doc->GetRoot()->OuterXml(), expected);
                    if (handleFirst) {
                        handle.reset();
                        EXPECT_EQ(doc->GetRoot()->OuterXml(), expected); // the handle freed nothing of the tree
                    }
                }
                EXPECT_EQ(allocations.outstanding(), 0);
            }
}

// --- Name and text ---------------------------------------------------------------------------------

TEST(NameAndText, SetDataReplacesOnlyTheFirstTextChild)
{
    struct Case { const char *document, *before, *text, *outer, *after; };
    const Case cases[] = {
        {"<a>x</a>", "x", "y", "<a>y</a>", "y"},
        {"<a/>", "", "", "<a></a>", ""},                             // an empty text node is appended
        {"<a>x</a>", "x", "", "<a/>", ""},                           // the text node is removed
        {"<a>x<b/>y</a>", "x", "z", "<a>z<b/>y</a>", "z"},           // mixed content keeps its order
        {"<a><b/>y</a>", "y", "", "<a><b/></a>", ""},                // first text child after an element
        {"<a><![CDATA[c]]></a>", "", "t", "<a><![CDATA[c]]>t</a>", "t"}, // CDATA does not count
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
    EXPECT_EQ(tarn::CreateXmlNode()->SetData("x"), -1);
}

// --- Serialisation ---------------------------------------------------------------------------------

TEST(Serialisation, OuterAndInnerXml)
{
    struct Case { const char *document, *outer, *inner; };
    const Case cases[] = {
        {"<a></a>", "<a/>", ""},
        {"<a x=\"&gt;\">1 &gt; 0</a>", "<a x=\"&gt;\">1 &gt; 0</a>", "1 &gt; 0"},
        {"<a><b>1</b><c><d/></c></a>", "<a><b>1</b><c><d/></c></a>", "<b>1</b><c><d/></c>"},
        {"<a q='\"'>\xc3\xa9</a>", "<a q=\"&quot;\">\xc3\xa9</a>", "\xc3\xa9"},
    };
    tarntest::LogCapture capture;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.document);
        XmlDocumentPtr doc = load(c.document);
        EXPECT_EQ(doc->GetRoot()->OuterXml(), c.outer);
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
    for (int i = 0; i < 2; ++i) // repeatable; the scratch document is left empty each time
        EXPECT_EQ(node->SerializeOuterXml(), kDecl + "<a x=\"1\">t</a>\n");
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
    EXPECT_EQ(tarn::g_tempDoc->last, nullptr);
    EXPECT_EQ(tarn::CreateXmlNode()->SerializeOuterXml(), kDecl);

    // A node of a loaded document is taken out of it.
    XmlDocumentPtr doc = load("<r><a>1</a><b>2</b></r>");
    XmlNodePtr a = handleOn(child(doc->GetRoot()->getlibXML2Node(), "a"));
    EXPECT_EQ(a->SerializeOuterXml(), kDecl + "<a>1</a>\n");
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
    {
        const tarntest::QuietLibxml2 quiet;
        tarntest::LibxmlAllocations allocations;
        allocations.failAfter(0);
        EXPECT_EQ(node->SerializeOuterXml(), "");
    }
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
    // A lock left held would hang the next call here (the mutex is not recursive).
    EXPECT_EQ(node->SerializeOuterXml(), kDecl + "<a>t</a>\n");
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

// Several threads each parse, query, edit and serialise documents of their own while all of them
// serialise their own detached nodes (cloned out of those documents) through the one scratch
// document at once.
TEST(Serialisation, DocumentsAndSerializeOuterXmlOnSeveralThreads)
{
    tarn::libXMLStartup();
    constexpr int kThreads = 4;
    const long kIterations = tarntest::iterations(3000);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, kIterations, &wrong] {
            const std::string id = std::to_string(t);
            const std::string text = "<doc t=\"" + id + "\"><item>a</item><item>b</item></doc>";
            for (long i = 0; i < kIterations; ++i) {
                XmlDocumentPtr document = tarn::CreateXmlDocument(text);
                XmlNodePtr root = document ? document->GetRoot() : XmlNodePtr();
                if (!root || root->GetAttribute("t") != id) {
                    ++wrong;
                    continue;
                }
                root->AddChild("item", static_cast<int>(i));
                int items = 0;
                tarn::XPathNodeIterator* found = document->GetIterator("/doc/item");
                for (XmlNodePtr n = found ? found->GetFirst() : XmlNodePtr(); n; n = found->GetNext())
                    ++items;
                const std::string last = "<item>" + std::to_string(i) + "</item>";
                if (items != 3 || root->OuterXml() != "<doc t=\"" + id + "\"><item>a</item><item>b</item>" + last + "</doc>")
                    ++wrong;
                XmlNodePtr detached = root->Clone();
                detached->RemoveChild("item");
                detached->SetAttribute("i", std::to_string(i));
                if (detached->SerializeOuterXml() != kDecl + "<doc t=\"" + id + "\" i=\"" + std::to_string(i) + "\"/>\n")
                    ++wrong;
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
    struct Case { const char* label; std::function<int(tarn::XmlNode&)> add; const char* outer; };
    const std::vector<Case> cases = {
        {"escaped", [](tarn::XmlNode& n) { return n.AddChildWithEscData("v", "1 &lt; 2&#65;"); }, "<v>1 &lt; 2A</v>"},
        // An invalid byte inside the value is marked; one cut off at the very end is dropped.
        {"sanitised", [](tarn::XmlNode& n) { return n.AddChild("a\x01", std::string("\x02\xc0x\xc3")); },
         "<a?>?\xef\xbf\xbdx</a?>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        XmlNodePtr parent = tarn::CreateXmlNode("p", "");
        EXPECT_EQ(c.add(*parent), 0);
        EXPECT_EQ(parent->InnerXml(), c.outer);
        EXPECT_EQ(c.add(*tarn::CreateXmlNode()), -3);
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
        for (int i = 0; i < 3; ++i) {
            const tarntest::LogRecord& record = capture.records()[i];
            const char* const names[] = {"first", "second", "third"};
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

TEST(Moves, NodeUnderItselfOrADescendantIsRefused)
{
    XmlDocumentPtr doc = load("<r><a><b><c/></b></a></r>");
    xmlNode* const a = child(doc->GetRoot()->getlibXML2Node(), "a");
    xmlNode* const b = child(a, "b");
    xmlNode* const c = child(b, "c");
    const std::pair<xmlNode*, xmlNode*> cases[] = {{a, a}, {b, a}, {c, a}, {c, doc->GetRoot()->getlibXML2Node()}};
    for (const auto& k : cases) { // {parent, moved}: itself, under a child, a grandchild, the root
        XmlNodePtr parent = handleOn(k.first), moved = handleOn(k.second);
        EXPECT_EQ(parent->AddChild(moved), -1);
        EXPECT_EQ(parent->AddSibling(moved), -1);
        EXPECT_EQ(moved->getlibXML2Node(), k.second);
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

    // An anchor without children refuses and the moved handle keeps owning its node.
    XmlNodePtr leaf = handleOn(child(root->getlibXML2Node(), "a"));
    XmlNodePtr moved = tarn::CreateXmlNode("m", "1");
    xmlNode* const before = moved->getlibXML2Node();
    EXPECT_EQ(leaf->AddSibling(moved), -1);
    EXPECT_EQ(moved->getlibXML2Node(), before);

    // The last child after itself: refused, nothing changes.
    EXPECT_EQ(root->AddSibling(handleOn(child(root->getlibXML2Node(), "a"))), -1);
    EXPECT_EQ(root->OuterXml(), "<r><a/></r>");

    // Placed after the anchor's last child, i.e. as its new last child, not after the anchor.
    EXPECT_EQ(root->AddSibling(moved), 0);
    EXPECT_EQ(moved->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->OuterXml(), "<r><a/><m>1</m></r>");
    EXPECT_EQ(root->AddChild(XmlNodePtr()), -3);
}

} // namespace
