// Node handles: ownership in every state, names and text, serialisation, creation and moves.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
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

// Nodes are reached through libxml2's own links: the tests must not depend on the child lookups.
XmlNodePtr handleOn(xmlNode* target)
{
    XmlNodePtr handle = tarn::CreateXmlNode();
    return handle->Initialize(target), handle;
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
    for (State state : {State::Empty, State::Referring, State::Owning, State::OwningElsewhere})
        for (Path path : {Path::Drop, Path::Remove, Path::InitializeWithName, Path::AddChild, Path::AddSibling})
            for (bool handleFirst : {true, false}) {
                SCOPED_TRACE(std::to_string(static_cast<int>(state)) + "/" + std::to_string(static_cast<int>(path)) +
                             (handleFirst ? "/handle first" : "/doc first"));
                const bool owning = state == State::Owning, hasNode = state != State::Empty,
                           refers = state == State::Referring || state == State::OwningElsewhere;
                tarntest::LibxmlAllocations allocations;
                {
                    XmlNodePtr handle = tarn::CreateXmlNode(); // declared first: dropped after doc
                    XmlDocumentPtr doc = load("<r><k>v</k></r>");
                    if (owning || state == State::OwningElsewhere) {
                        ASSERT_TRUE(handle->Initialize("o", "t"));
                        ASSERT_EQ(handle->AddChild("deep", "x"), 0);
                    }
                    if (refers) // the owning handle keeps its node while it refers to k
                        handle->Initialize(doc->GetRoot()->getlibXML2Node()->children);
                    std::string expected = "<r><k>v</k></r>";
                    if (path == Path::Remove) {
                        const long before = allocations.outstanding();
                        handle->Remove();
                        EXPECT_TRUE(!owning || allocations.outstanding() < before); // freed now, not at the drop
                        EXPECT_EQ(handle->OuterXml(), "");
                        handle->Remove(); // again: nothing left to do
                        if (refers)
                            expected = "<r/>";
                    } else if (path == Path::InitializeWithName) {
                        EXPECT_TRUE(handle->Initialize("n", "1"));
                        EXPECT_EQ(handle->OuterXml(), "<n>1</n>");
                    } else if (path == Path::AddChild) {
                        EXPECT_EQ(doc->GetRoot()->AddChild(handle), hasNode ? 0 : -3);
                        if (owning)
                            expected = "<r><k>v</k><o>t<deep>x</deep></o></r>";
                        EXPECT_EQ(handle->OuterXml(), owning ? "<o>t<deep>x</deep></o>" : hasNode ? "<k>v</k>" : "");
                    } else if (path == Path::AddSibling) {
                        ASSERT_EQ(doc->GetRoot()->AddChild("z", ""), 0); // room to move k
                        EXPECT_EQ(doc->GetRoot()->AddSibling(handle), hasNode ? 0 : -1);
                        expected = owning ? "<r><k>v</k><z/><o>t<deep>x</deep></o></r>"
                                          : refers ? "<r><z/><k>v</k></r>" : "<r><k>v</k><z/></r>";
                        EXPECT_EQ(handle->OuterXml(), "");
                    }
                    if (handleFirst)
                        handle.reset();
                    EXPECT_EQ(doc->GetRoot()->OuterXml(), expected); // the handle freed nothing of the tree
                }
                EXPECT_EQ(allocations.outstanding(), 0);
            }
}

// --- Name and text ---------------------------------------------------------------------------------

TEST(NameAndText, SetDataReplacesOnlyTheFirstTextChild)
{
    struct Case { const char *document, *before, *text, *outer, *after; };
    const Case cases[] = {
        {"<a>x</a>", "x", "y", "<a>y</a>", "y"}, {"<a>x</a>", "x", "", "<a/>", ""}, // replaced; an empty text removes it
        {"<a/>", "", "", "<a></a>", ""},                             // an empty text node is appended
        // Mixed content keeps its order; the first text child may follow an element.
        {"<a>x<b/>y</a>", "x", "z", "<a>z<b/>y</a>", "z"}, {"<a><b/>y</a>", "y", "", "<a><b/></a>", ""},
        {"<a><![CDATA[c]]></a>", "", "t", "<a><![CDATA[c]]>t</a>", "t"}, // CDATA does not count
        {"<a/>", "", "bad\xff\x01", "<a>bad\xef\xbf\xbd?</a>", "bad\xef\xbf\xbd?"}, // repaired
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.document) + " <- " + c.text);
        XmlDocumentPtr doc = load(c.document);
        XmlNodePtr root = doc->GetRoot();
        EXPECT_EQ(root->GetData(), c.before);
        EXPECT_EQ(root->SetData(c.text), 0);
        EXPECT_EQ(root->OuterXml() + "|" + root->GetData(), std::string(c.outer) + "|" + c.after);
    }
    EXPECT_EQ(tarn::CreateXmlNode()->SetData("x"), -1);
}

// --- Serialisation ---------------------------------------------------------------------------------

TEST(Serialisation, OuterAndInnerXmlAndTheReportForANodeWithoutMarkup)
{
    struct Case { const char *document, *outer, *inner; };
    const Case cases[] = {
        {"<a></a>", "<a/>", ""}, {"<a x=\"&gt;\">1 &gt; 0</a>", "<a x=\"&gt;\">1 &gt; 0</a>", "1 &gt; 0"},
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
    // An empty handle and a text node have no inner markup: each call is reported, and only those.
    XmlDocumentPtr doc = load("<a>t</a>");
    for (const XmlNodePtr& handle : {tarn::CreateXmlNode(), handleOn(doc->GetRoot()->getlibXML2Node()->children)})
        EXPECT_EQ(handle->InnerXml(), "");
    std::string reports;
    for (const tarntest::LogRecord& report : capture.assertions())
        reports += report.file + ":" + std::to_string(report.line) + " ";
    EXPECT_EQ(reports, "../tarnshared/xml/XmlNode:975 ../tarnshared/xml/XmlNode:975 ");
    EXPECT_EQ(tarn::CreateXmlNode()->SerializeOuterXml(), kDecl); // an empty handle: the declaration only
}

// Out of memory: serialising to a document gives "", the rest raise bad_alloc; nothing leaks and
// neither the scratch document nor its lock is left held.
TEST(Serialisation, OutOfMemoryLeaksNothingAndReleasesTheScratchDocument)
{
    warmUp();
    XmlNodePtr node = tarn::CreateXmlNode("a", "t");
    {
        const tarntest::QuietLibxml2 quiet;
        tarntest::LibxmlAllocations allocations;
        allocations.failAfter(0);
        EXPECT_EQ(node->SerializeOuterXml(), "");
        EXPECT_THROW(node->OuterXml(), std::bad_alloc);
        for (long fail : {0L, 1L}) { // nothing made; the element made but not its text node
            allocations.failAfter(fail);
            xmlNode* made = nullptr;
            EXPECT_THROW(tarn::XmlNode::createLibXML2Node(nullptr, "n", "v", &made), std::bad_alloc);
            EXPECT_EQ(made, nullptr);
        }
        allocations.failAfter(2); // the element and its name; the text node fails
        EXPECT_THROW(node->AddChild("n", "v"), std::bad_alloc);
        allocations.allowAll();
        EXPECT_EQ(allocations.outstanding(), 0);
    }
    EXPECT_EQ(tarn::g_tempDoc->children, nullptr);
    // A lock left held would hang the next call here (the mutex is not recursive).
    EXPECT_EQ(node->SerializeOuterXml(), kDecl + "<a>t</a>\n");
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

// Handles may be dropped on another thread than the one that made them and may outlive it. Each
// thread keeps a few released handles' memory for its next handles and frees it when it ends: a
// leak there shows under valgrind, a race under ThreadSanitizer.
TEST(HandleMemory, HandlesCrossThreadsAndOutliveTheThreadThatMadeThem)
{
    const auto text = [](const char* name, int i) { return std::string("<") + name + ">" + std::to_string(i) + "</" + name + ">"; };
    std::vector<XmlNodePtr> made;
    std::thread([&made] {
        for (int i = 0; i < 200; ++i)
            made.push_back(tarn::CreateXmlNode("n", i));
    }).join();
    // Half are dropped by a thread that made none.
    std::vector<XmlNodePtr> dropped(made.begin(), made.begin() + 100);
    made.erase(made.begin(), made.begin() + 100);
    std::thread([dropped = std::move(dropped)]() mutable { dropped.clear(); }).join();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(made[i]->OuterXml(), text("n", i + 100));
    // Four threads make, pass on and drop handles at once; this thread drops what they passed on.
    std::mutex lock;
    std::vector<XmlNodePtr> passed;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&lock, &passed, t] {
            for (int i = 0; i < 500; ++i) {
                XmlNodePtr node = tarn::CreateXmlNode("t", t * 1000 + i), copy = node->Clone();
                if (i % 2 == 0) {
                    const std::lock_guard<std::mutex> hold(lock);
                    passed.push_back(copy);
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(passed.size(), 1000u);
    for (const XmlNodePtr& node : passed) {
        const int value = std::stoi(node->GetData());
        EXPECT_EQ(value % 2, 0);
        EXPECT_EQ(node->OuterXml(), text("t", value));
    }
    made.clear();
    passed.clear();
    EXPECT_EQ(tarn::CreateXmlNode("m", 7)->OuterXml(), text("m", 7));
}

// --- Creation and insertion ------------------------------------------------------------------------

TEST(Creation, AddChildVariantsAndTheDeprecatedOneTracesEveryCall)
{
    XmlNodePtr parent = tarn::CreateXmlNode("p", ""), none = tarn::CreateXmlNode();
    EXPECT_EQ(parent->AddChildWithEscData("v", "1 &lt; 2&#65;"), 0);
    // An invalid byte inside the value is marked; one cut off at the very end is dropped.
    EXPECT_EQ(parent->AddChild("a\x01", std::string("\x02\xc0x\xc3")), 0);
    EXPECT_EQ(none->AddChildWithEscData("v", "1"), -3);
    EXPECT_EQ(none->AddChild("a", std::string("1")), -3);
    tarntest::LogCapture capture(log4cplus::TRACE_LOG_LEVEL);
    const char* const names[] = {"first", "second", "third"};
    EXPECT_EQ(parent->AddChild(names[0], "1"), 0);
    EXPECT_EQ(parent->AddChild(names[1], static_cast<const char*>(nullptr)), -3);
    EXPECT_EQ(none->AddChild(names[2], "3"), -3);
    ASSERT_EQ(capture.records().size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const tarntest::LogRecord& record = capture.records()[i];
        EXPECT_EQ(record.level, log4cplus::TRACE_LOG_LEVEL);
        EXPECT_EQ(record.message, std::string("tarn::AddChild char* being called with name ") + names[i] + " is deprecated!");
        EXPECT_EQ(record.file + ":" + std::to_string(record.line) + " " + record.function,
                  "../tarnshared/xml/XmlNode:1153 RESULTX tarn::XmlNode::AddChild(const string&, const char*)");
    }
    EXPECT_EQ(parent->OuterXml(), "<p><v>1 &lt; 2A</v><a?>?\xef\xbf\xbdx</a?><first>1</first></p>");
}

// The typed factories write their value as text, pass the name through the gate and own what
// they made.
TEST(Creation, TypedFactoriesWriteTheirValueAsText)
{
    const struct { XmlNodePtr made; const char* text; } cases[] = {
        {tarn::CreateXmlNode("n", -5), "-5"},
        {tarn::CreateXmlNode("n", 4000000000u), "4000000000"},
        {tarn::CreateXmlNode("n", -9000000000LL), "-9000000000"},
        {tarn::CreateXmlNode("n", 18446744073709551615ULL), "18446744073709551615"},
        {tarn::CreateXmlNode("n", 0.1 + 0.2), "0.3"},
        {tarn::CreateXmlNode("n", 1e6), "1e+06"},
        {tarn::CreateXmlNode("n", true), "true"},
        {tarn::CreateXmlNode("n", false), "false"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.made->OuterXml(), "<n>" + std::string(c.text) + "</n>");
    EXPECT_EQ(tarn::CreateXmlNode("n\xff", -5)->GetName(), "n\xef\xbf\xbd");
    XmlDocumentPtr doc = load("<r/>");
    EXPECT_EQ(doc->GetRoot()->AddChild(cases[2].made), 0); // the tree takes it over: freed once, with doc
    EXPECT_EQ(doc->GetRoot()->OuterXml(), "<r><n>-9000000000</n></r>");
}

// A refused move changes nothing: the moved handle keeps its node and both trees stay as they were.
TEST(Moves, RefusedMovesChangeNothing)
{
    XmlDocumentPtr doc = load("<r><a><b><c/></b></a></r>");
    xmlNode *const r = doc->GetRoot()->getlibXML2Node(), *const a = r->children, *const c = a->children->children;
    XmlNodePtr owner = load("<o><p><leaf/></p></o>")->GetRoot()->Clone(), owned = tarn::CreateXmlNode("m", "1");
    struct Case { XmlNodePtr anchor, moved; bool asChildToo; int result; };
    const Case cases[] = {
        {handleOn(a), handleOn(a), true, -1},                              // under itself
        {handleOn(c), handleOn(a), true, -1},                              // under a grandchild
        {handleOn(c), handleOn(r), true, -1},                              // the root under a leaf
        {handleOn(owner->getlibXML2Node()->children), owner, true, -1},    // a detached tree under its child
        {handleOn(c), owned, false, -1},                                   // a sibling needs an anchor with children
        {doc->GetRoot(), handleOn(a), false, -1},                          // the last child after itself
        {doc->GetRoot(), XmlNodePtr(), true, -3},
        {tarn::CreateXmlNode(), owned, false, -3},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(&k - cases);
        xmlNode* const before = k.moved ? k.moved->getlibXML2Node() : nullptr;
        EXPECT_EQ(k.asChildToo ? k.anchor->AddChild(k.moved) : k.result, k.result);
        EXPECT_EQ(k.anchor->AddSibling(k.moved), k.result);
        EXPECT_EQ(k.moved ? k.moved->getlibXML2Node() : nullptr, before);
        EXPECT_EQ(doc->GetRoot()->OuterXml() + owner->OuterXml(), "<r><a><b><c/></b></a></r><o><p><leaf/></p></o>");
    }
}

// libxml2 merges an inserted text node into a text neighbour and frees it (leaks and double frees
// show under ASan/LeakSanitizer).
TEST(Moves, MergedTextNode)
{
    XmlDocumentPtr doc = load("<r>a</r>"), other = load("<o>x<q>y</q></o>");
    XmlNodePtr root = doc->GetRoot();
    xmlNode* text = xmlNewText(reinterpret_cast<const xmlChar*>("b")); // owned by a handle
    XmlNodePtr moved = handleOn(text);
    moved->setCreatedNode(text);
    ASSERT_EQ(root->AddChild(moved), 0);
    // Through AddChild the handle is left on the surviving node.
    EXPECT_EQ(moved->OuterXml() + root->OuterXml(), "ab<r>ab</r>");
    // Through AddSibling (a text node after a text last child) it is left on nothing.
    XmlNodePtr fromOther = handleOn(other->GetRoot()->getlibXML2Node()->children);
    ASSERT_EQ(root->AddSibling(fromOther), 0);
    EXPECT_EQ(fromOther->getlibXML2Node(), nullptr);
    EXPECT_EQ(root->OuterXml() + other->GetRoot()->OuterXml(), "<r>abx</r><o><q>y</q></o>");
}

} // namespace
