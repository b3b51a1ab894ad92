// Node operations at their limits: trees built through the API far deeper than the parser
// accepts, many interleaved removals, XPath results that hold namespace nodes, and threads that
// serialise their own nodes through the shared scratch document and then query them.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <libxml/tree.h>
#include <pugixml.hpp>

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
    const XmlNodePtr found = query->GetFirst();
    EXPECT_TRUE(found && found->GetChild() && !found->GetChild()->GetChild());
    EXPECT_FALSE(query->GetNext());
    const std::string whole = moved->SerializeOuterXml();
    EXPECT_EQ(whole, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + outer + "\n");

    // The pugixml bridge both ways: pugixml walks without recursion; the way back parses, and
    // the parser refuses that depth.
    pugi::xml_document pugiDocument;
    ASSERT_TRUE(XmlHelper::convert(chain, pugiDocument));
    EXPECT_EQ(XmlHelper::outerXml(pugiDocument.first_child(), false, nullptr), outer);
    const tarntest::QuietLibxml2 quiet;
    EXPECT_FALSE(XmlHelper::convert(pugiDocument.first_child()));
}

} // namespace
