// Node operations at their limits: trees built through the API far deeper than the parser
// accepts, many interleaved removals, XPath results that hold namespace nodes, and threads that
// serialise their own nodes through the shared scratch document and then query them.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>
#include <vector>

#include <libxml/tree.h>
#include <pugixml.hpp>

#include "LibxmlAllocations.h"
#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

namespace {

using tarn::XmlDocumentPtr;
using tarn::XmlNodePtr;

// Far deeper than any recursion over it could go on a thread's stack.
constexpr int kDeep = 100000;

// A chain of kDeep elements "d" built bottom-up through AddChild, each with an attribute and a
// text node after its child, and a namespace declared on the top that every element uses.
XmlNodePtr deepChain()
{
    XmlNodePtr chain = tarn::CreateXmlNode("d", "leaf");
    for (int i = 1; i < kDeep; ++i) {
        XmlNodePtr parent = tarn::CreateXmlNode("d", "");
        EXPECT_EQ(parent->AddChild(chain), 0);
        parent->SetAttribute("i", std::to_string(i));
        chain = parent;
    }
    xmlNode* top = chain->getlibXML2Node();
    xmlNs* ns = xmlNewNs(top, reinterpret_cast<const xmlChar*>("urn:deep"), reinterpret_cast<const xmlChar*>("p"));
    for (xmlNode* n = top; n; n = n->children)
        if (n->type == XML_ELEMENT_NODE)
            xmlSetNs(n, ns);
    return chain;
}

int depthOf(const xmlNode* node)
{
    int depth = 0;
    for (; node && node->type == XML_ELEMENT_NODE; node = node->children)
        ++depth;
    return depth;
}

TEST(DeepTree, CloneCopyMoveSerialiseAndQueryNeverRecurse)
{
    const XmlNodePtr chain = deepChain();
    const std::string outer = chain->OuterXml();
    EXPECT_EQ(outer.rfind("<p:d xmlns:p=\"urn:deep\" i=\"99999\"><p:d i=\"99998\">", 0), 0u) << outer.substr(0, 40);
    for (const XmlNodePtr& copy : {chain->Clone(), chain->Copy()}) {
        ASSERT_TRUE(copy);
        EXPECT_EQ(depthOf(copy->getlibXML2Node()), kDeep);
        EXPECT_EQ(copy->OuterXml(), outer);
    }

    // Moved into a document, copied with it, queried, then serialised alone.
    const XmlDocumentPtr document = tarn::CreateXmlDocument("<r/>");
    ASSERT_TRUE(document);
    const XmlNodePtr moved = chain->Clone();
    ASSERT_EQ(document->GetRoot()->AddChild(moved), 0);
    const XmlDocumentPtr copied = document->Copy();
    ASSERT_TRUE(copied && copied->GetRoot());
    EXPECT_EQ(copied->GetRoot()->OuterXml(), "<r>" + outer + "</r>");
    tarn::XPathNodeIterator* query = copied->GetIterator("//*[@i='1']");
    ASSERT_NE(query, nullptr);
    const XmlNodePtr found = query->GetFirst(); // the second deepest, with one child
    EXPECT_TRUE(found && found->GetChild() && !found->GetChild()->GetChild());
    EXPECT_FALSE(query->GetNext());
    EXPECT_EQ(moved->SerializeOuterXml(), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + outer + "\n");
    EXPECT_EQ(document->GetRoot()->OuterXml(), "<r/>");
    moved->Remove(); // serialised, it left the document, which no longer frees it

    // The pugixml bridge both ways: pugixml walks without recursion; the way back parses, and
    // the parser refuses that depth.
    pugi::xml_document pugiDocument;
    ASSERT_TRUE(XmlHelper::convert(chain, pugiDocument));
    EXPECT_EQ(XmlHelper::outerXml(pugiDocument.first_child(), false, nullptr), outer);
    const tarntest::QuietLibxml2 quiet;
    EXPECT_FALSE(XmlHelper::convert(pugiDocument.first_child()));
}

// Matching children interleaved with others, removed in one call: linear, so the default run
// finishes at once; a walk that restarts at the first child after each removal needs minutes.
TEST(RemoveChild, InterleavedChildrenInOnePass)
{
    const long pairs = tarntest::iterations(200000);
    const XmlNodePtr parent = tarn::CreateXmlNode("r", "");
    for (long i = 0; i < pairs; ++i) {
        parent->AddChild("a", std::to_string(i));
        parent->AddChild("b", std::to_string(i));
    }
    parent->AddChild("a", std::string("last"));
    EXPECT_EQ(parent->RemoveChild("a"), 0);
    EXPECT_EQ(parent->GetChildCount(), pairs);
    long expected = 0;
    bool inOrder = true;
    for (XmlNodePtr child = parent->GetIterator()->GetFirst(); child; child = parent->GetIterator()->GetNext())
        inOrder = inOrder && child->GetName() == "b" && child->GetData() == std::to_string(expected++);
    EXPECT_TRUE(inOrder);
}

// libxml2 copies each namespace node it selects; those copies belong to the result and are freed
// with it, while the tree's own nodes are never read when a result is dropped.
TEST(XPathNamespaces, NamespaceNodesInResultsAreFreed)
{
    const char* const text = "<r xmlns=\"urn:d\" xmlns:p=\"urn:p\"><p:a xmlns:q=\"urn:q\"><b/></p:a></r>";
    tarn::CreateXmlDocument(text)->GetIterator("//namespace::*"); // libxml2's lazy globals
    struct Case { const char* xpath; bool onNode; int elements; };
    const Case cases[] = {{"//namespace::*", false, 0}, {"//*/namespace::* | //*", false, 3},
                          {"namespace::*", true, 0}, {"namespace::p/.. | .//namespace::*/..", true, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        const tarntest::LibxmlAllocations allocations;
        {
            const XmlDocumentPtr document = tarn::CreateXmlDocument(text);
            const XmlNodePtr a = document->GetRoot()->GetChild();
            tarn::XPathNodeIterator* it = c.onNode ? a->GetIterator(c.xpath) : document->GetIterator(c.xpath);
            int elements = 0;
            for (XmlNodePtr n = it->GetFirst(); n; n = it->GetNext())
                ++elements;
            EXPECT_EQ(elements, c.elements);
            // A second query replaces the first result; the handle's result outlives the
            // document and is freed with the handle.
            (c.onNode ? a->GetIterator(c.xpath) : document->GetIterator(c.xpath))->GetFirst();
            const XmlNodePtr keep = a;
            document->reset();
        }
        EXPECT_EQ(allocations.outstanding(), 0);
    }
}

// An exception that unwinds through the parse (here from an error handler the host installed)
// leaves Load with an empty document and nothing of libxml2's allocated: the parser context and
// the partial tree are freed on the way out.
TEST(LoadCleanUp, ExceptionThroughTheParseLeaksNothing)
{
    const char* const broken = "<r><a x=\"1\">text</r>";
    tarn::XmlDocument document;
    xmlSetStructuredErrorFunc(nullptr, [](void*, xmlError*) { throw std::bad_alloc(); });
    EXPECT_EQ(document.Load(broken, false), -1); // libxml2's last-error record now holds that error
    long outstanding = 0;
    {
        const tarntest::LibxmlAllocations allocations;
        for (const bool recover : {false, true})
            EXPECT_EQ(document.Load(broken, recover), -1);
        outstanding = allocations.outstanding();
    }
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    EXPECT_EQ(outstanding, 0);
    EXPECT_FALSE(document.GetRoot());
    EXPECT_EQ(document.Load("<r/>", false), 0);
}

// Every node and attribute of the (small: this recurses) subtree under `node`.
void collect(xmlNode* node, std::vector<xmlNode*>& out)
{
    out.push_back(node);
    for (xmlAttr* a = node->properties; a; a = a->next) // null for all but elements
        out.push_back(reinterpret_cast<xmlNode*>(a));
    for (xmlNode* child = node->children; child; child = child->next)
        collect(child, out);
}

TEST(ScratchDocument, SerialisedSubtreeGoesBackToItsOwnDocument)
{
    const XmlDocumentPtr document = tarn::CreateXmlDocument("<r><a x=\"1\"><b y=\"2\">t</b><!--c--></a></r>");
    ASSERT_TRUE(document);
    xmlDoc* const loadedDoc = document->GetRoot()->getlibXML2Node()->doc;
    const XmlNodePtr created = tarn::CreateXmlNode("a", "t");
    ASSERT_EQ(created->AddChild("b", std::string("u")), 0);
    ASSERT_EQ(created->GetChild("b")->SetAttribute("y", "2"), 0);
    const XmlNodePtr loaded = document->GetRoot()->GetChild("a");
    struct Case { XmlNodePtr node; xmlDoc* owner; };
    for (const Case& c : {Case{created, nullptr}, Case{created->Clone(), nullptr}, Case{loaded, loadedDoc}}) {
        EXPECT_NE(c.node->SerializeOuterXml().find("<b y=\"2\">"), std::string::npos);
        std::vector<xmlNode*> nodes;
        collect(c.node->getlibXML2Node(), nodes);
        EXPECT_GE(nodes.size(), 4u);
        for (xmlNode* n : nodes)
            EXPECT_EQ(n->doc, c.owner) << n->name;
        EXPECT_EQ(c.node->getlibXML2Node()->parent, nullptr);
    }
    // Taken out of the document by the serialisation, the element is no longer freed with it.
    EXPECT_EQ(document->GetRoot()->OuterXml(), "<r/>");
    loaded->Remove();
}

// Each thread serialises clones of its own tree and then queries them. An absolute path from a
// detached node selects nothing; it must never reach into what another thread has in the scratch
// document at that moment.
TEST(ScratchDocument, ThreadsSerialiseThenQueryTheirOwnNodes)
{
    tarn::libXMLStartup(); // on one thread first, as the library asks
    constexpr int kThreads = 8;
    const long rounds = tarntest::iterations(1000);
    std::vector<int> foreign(kThreads, 0), own(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, rounds, &foreign, &own] {
            const std::string mine = std::to_string(t);
            const XmlNodePtr tree = tarn::CreateXmlNode("t", "");
            for (int i = 0; i < 3; ++i)
                tree->AddChild("item", mine);
            for (long r = 0; r < rounds; ++r) {
                const XmlNodePtr clone = tree->Clone();
                clone->SerializeOuterXml();
                for (const char* xpath : {"//item", "/t/item", "item"}) {
                    tarn::XPathNodeIterator* it = clone->GetIterator(xpath);
                    for (XmlNodePtr n = it->GetFirst(); n; n = it->GetNext())
                        ++(n->GetData() == mine ? own[t] : foreign[t]);
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(foreign[t], 0) << "thread " << t;
        EXPECT_EQ(own[t], 3 * rounds) << "thread " << t;
    }
}

} // namespace
