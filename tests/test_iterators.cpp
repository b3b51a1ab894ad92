// Child, attribute and XPath iterators: what they yield, how they are re-aimed, and who frees
// their results in which order.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"

#include "TestSupport.h"

#include <gtest/gtest.h>
#include <libxml/xpath.h>
#include <malloc.h>

#include <set>

namespace {

using namespace tarn;
typedef std::vector<std::string> Names;

// Walks an iterator to its end, from GetFirst or (with `first` false) with GetNext only, and
// labels each element with its name and id attribute.
Names walk(XmlNodeIterator* iterator, bool first = true) {
    Names labels;
    for (XmlNodePtr n = !iterator ? XmlNodePtr() : first ? iterator->GetFirst() : iterator->GetNext(); n; n = iterator->GetNext())
        labels.push_back(n->GetName() + n->GetAttribute("id"));
    return labels;
}

XmlNodePtr handleOn(xmlNode* node) {
    const XmlNodePtr handle = CreateXmlNode();
    return handle->Initialize(node), handle;
}

TEST(ChildIterator, YieldsElementsThroughOneReusedItemAndIsReaimed) {
    const XmlDocumentPtr document = CreateXmlDocument(
        "<!DOCTYPE r [<!ENTITY e \"<x/>\">]><r><p>t<a/><!--c-->&e;<?pi x?><![CDATA[d]]><b><c/></b>\n<a id=\"2\"/>u</p><q><c/></q></r>");
    ASSERT_TRUE(document);
    const XmlNodePtr handle = handleOn(document->GetRoot()->getlibXML2Node()->children);
    XmlNodeIterator* iterator = handle->GetIterator();
    EXPECT_FALSE(iterator->GetNext()); // no position yet
    const XmlNodePtr item = iterator->GetFirst();
    ASSERT_TRUE(item && item->GetName() == "a");
    // Asking again hands out the same iterator, still in place, and the same item.
    EXPECT_EQ(handle->GetIterator(), iterator);
    EXPECT_EQ(handle->GetIterator()->GetNext().get(), item.get());
    EXPECT_EQ(item->GetName(), "b");
    EXPECT_TRUE(iterator->GetNext() && !iterator->GetNext() && !iterator->GetNext());
    EXPECT_EQ(item->getlibXML2Node(), nullptr); // the item ends on no node
    EXPECT_EQ(walk(iterator), Names({"a", "b", "a2"}));
    // Re-pointing the handle re-aims its iterator, with no position, on the next request.
    ASSERT_TRUE(iterator->GetFirst());
    handle->Initialize(handle->getlibXML2Node()->next);
    EXPECT_FALSE(handle->GetIterator()->GetNext());
    EXPECT_EQ(walk(handle->GetIterator()), Names({"c"}));
    handle->Initialize(nullptr);
    EXPECT_FALSE(handle->GetIterator()->GetFirst() || handle->GetAttributeIterator()->GetFirst());
    XmlNodeIterator unaimed;
    EXPECT_FALSE(unaimed.GetFirst() || unaimed.GetNext());
    // The document hands out its root handle's iterator; without a root it has nothing to walk.
    EXPECT_EQ(document->GetIterator(), document->GetRoot()->GetIterator());
    EXPECT_EQ(walk(document->GetIterator()), Names({"p", "q"}));
    EXPECT_EQ(CreateXmlDocument()->GetIterator(), nullptr);
    document->GetRoot()->Remove();
    EXPECT_EQ(document->GetIterator(), nullptr);
}

TEST(AttributeIterator, YieldsEachAttributeThroughOneReusedView) {
    const std::pair<const char*, std::string> cases[] = {
        {"<e a=\"1\" b=\"\"/>", "a=1 b= "}, {"<e/>", ""}, {"<e a=\"x&amp;y &lt;z&gt;\"/>", "a=x&y <z> "},
        // Namespace declarations are not attributes; prefixed attributes give their local name.
        {"<e xmlns=\"urn:u\" xmlns:p=\"urn:v\" p:a=\"1\" b=\"2\"/>", "a=1 b=2 "},
        // Only the value's first piece is read: an entity reference splits it.
        {"<!DOCTYPE e [<!ENTITY x \"X\">]><e a=\"p&x;q\" b=\"&x;\"/>", "a=p b=X "}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        const XmlDocumentPtr document = CreateXmlDocument(c.first);
        XmlAttributeIterator* iterator = document->GetRoot()->GetAttributeIterator();
        EXPECT_FALSE(iterator->GetNext()); // not started
        const XmlAttributePtr item = iterator->GetFirst();
        std::string seen;
        for (XmlAttributePtr view = item; view; view = document->GetRoot()->GetAttributeIterator()->GetNext())
            seen += (view == item ? "" : "new item! ") + view->GetName() + "=" + view->GetValue() + " ";
        EXPECT_EQ(seen, c.second);
        EXPECT_FALSE(iterator->GetNext());
        EXPECT_EQ(item ? item->GetName() + item->GetValue() : "", ""); // ends on no attribute
    }
    // An attribute without any value node, and a view of nothing, read empty.
    const XmlNodePtr node = CreateXmlNode("e", "");
    ASSERT_NE(xmlNewProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>("n"), nullptr), nullptr);
    const XmlAttributePtr bare = node->GetAttributeIterator()->GetFirst();
    EXPECT_EQ(bare->GetName() + "=" + bare->GetValue() + XmlAttribute().GetName() + XmlAttribute().GetValue(), "n=");
}

const char* const kRecords =
    "<r><a id=\"1\"/><b id=\"2\">t<a id=\"3\"/></b><a id=\"4\">u</a><c><d><a id=\"5\"/></d></c></r>";

TEST(XPath, QueriesYieldOnlyTheSelectedElements) {
    struct Case { bool onB; const char* xpath; Names expected; }; // onB: asked of a handle on b
    const Case cases[] = {
        {false, "//a", {"a1", "a3", "a4", "a5"}}, {false, "/r/*", {"a1", "b2", "a4", "c"}},
        {false, "//*[@id > 2]", {"a3", "a4", "a5"}}, {false, "//c/d/a | /r/b", {"b2", "a5"}},
        {false, "/r/nothing", {}}, {false, "//node()", {"r", "a1", "b2", "a3", "a4", "c", "d", "a5"}},
        // Nodes that are not elements are skipped, alone or mixed with elements.
        {false, "//@id", {}}, {false, "//text()", {}}, {false, "/", {}}, {false, "//b/@id | //b/text() | //b/a", {"a3"}},
        {true, "a", {"a3"}}, {true, "..", {"r"}}, {true, "following-sibling::*", {"a4", "c"}},
        {true, "/r/a", {"a1", "a4"}}, {true, "@id", {}}};
    const XmlDocumentPtr document = CreateXmlDocument(kRecords);
    const XmlNodePtr b = handleOn(document->GetRoot()->getlibXML2Node()->children->next);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        XPathNodeIterator* iterator = c.onB ? b->GetIterator(c.xpath) : document->GetIterator(c.xpath);
        ASSERT_NE(iterator, nullptr);
        EXPECT_EQ(walk(iterator), c.expected);
        // Right after a query GetNext starts the walk as GetFirst would.
        EXPECT_EQ(c.onB ? b->GetIterator(c.xpath) : document->GetIterator(c.xpath), iterator);
        EXPECT_EQ(walk(iterator, false), c.expected);
    }
}

TEST(XPath, ExpressionsThatGiveNoNodeSetKeepThePreviousResultAndPosition) {
    const char* const failing[] = {
        "count(//a)", "'text'", "true()", "1 div 0", "string(//a/@id)", // not node sets
        "//a[", "", "///", "a b", "//a]", "@",                          // syntax errors
        "nosuch()", "//a[nosuch(1)]",                                   // unknown functions
        "p:a", "//p:*", "$v",                                           // unbound prefix, variable
        "//a[@id='1'", "\xff\xfe"};                                     // unterminated, bad bytes
    const tarntest::QuietLibxml2 quiet;
    const XmlDocumentPtr document = CreateXmlDocument(kRecords), fresh = CreateXmlDocument(kRecords);
    const XmlNodePtr b = handleOn(document->GetRoot()->getlibXML2Node()->children->next), freshHandle = CreateXmlNode("x", "");
    for (const char* xpath : failing) {
        SCOPED_TRACE(xpath);
        // A document and a handle that never had a good query: nothing to walk.
        EXPECT_EQ(walk(fresh->GetIterator(xpath)), Names());
        ASSERT_NE(freshHandle->GetIterator(xpath), nullptr);
        EXPECT_EQ(walk(freshHandle->GetIterator(xpath)), Names());
        // After a good query, the failing one leaves the result and the position alone.
        XPathNodeIterator* iterator = document->GetIterator("//a");
        XPathNodeIterator* handleIterator = b->GetIterator("a|..");
        ASSERT_TRUE(iterator->GetFirst() && handleIterator->GetFirst());
        EXPECT_EQ(document->GetIterator(xpath), iterator);
        EXPECT_EQ(b->GetIterator(xpath), handleIterator);
        EXPECT_EQ(walk(iterator, false), Names({"a3", "a4", "a5"}));
        EXPECT_EQ(walk(handleIterator, false), Names({"a3"}));
        EXPECT_EQ(walk(iterator), Names({"a1", "a3", "a4", "a5"}));
    }
}

TEST(XPath, WalkEndsWithTheItemOnTheLastNode) {
    const XmlDocumentPtr document = CreateXmlDocument(kRecords);
    XPathNodeIterator* iterator = document->GetIterator("/r/a | //d");
    const XmlNodePtr item = iterator->GetFirst();
    ASSERT_TRUE(item);
    EXPECT_EQ(iterator->GetNext().get(), item.get());
    EXPECT_EQ(item->GetAttribute("id"), "4");
    EXPECT_TRUE(iterator->GetNext() && !iterator->GetNext() && !iterator->GetNext());
    EXPECT_EQ(item->GetName(), "d");
    // A result without elements, even an empty one, replaces the previous result; the item
    // stays where the previous walk left it.
    for (const char* xpath : {"//@id", "//zz"}) {
        EXPECT_EQ(document->GetIterator(xpath), iterator);
        EXPECT_FALSE(iterator->GetFirst());
        EXPECT_EQ(item->GetName(), "d");
    }
}

TEST(XPath, MissingNodeOrTreeGivesNoIterator) {
    EXPECT_EQ(CreateXmlNode()->GetIterator("."), nullptr);
    EXPECT_EQ(CreateXmlDocument()->GetIterator("//a"), nullptr);
    // A failed load leaves the document without a tree, and without its old iterator.
    const XmlDocumentPtr document = CreateXmlDocument(kRecords);
    ASSERT_NE(document->GetIterator("//a"), nullptr);
    const tarntest::QuietLibxml2 quiet;
    EXPECT_EQ(document->Load("not xml", false), -1);
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
    ASSERT_EQ(document->Load("<r><a id=\"9\"/></r>", false), 0);
    EXPECT_EQ(walk(document->GetIterator("//a")), Names({"a9"}));
    document->reset();
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
    // A detached node is queried without a document; a number computed over the missing document
    // keeps the previous result.
    const XmlNodePtr node = CreateXmlNode("top", "");
    ASSERT_EQ(node->AddChild("a", std::string("x")), 0);
    const std::pair<const char*, Names> cases[] = {
        {"a", {"a"}}, {".", {"top"}}, {"..", {}}, {"/", {}}, {"//a", {}}, {"a", {"a"}}, {"count(/) + count(//a)", {"a"}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        ASSERT_NE(node->GetIterator(c.first), nullptr);
        EXPECT_EQ(walk(node->GetIterator(c.first)), c.second);
    }
}

// libxml2 is not built with AddressSanitizer, so ASan cannot see it read a freed node. While the
// trap is set, blocks that libxml2 frees are kept, not released, and each is dressed as a
// namespace node whose "next" link points at an element: xmlXPathFreeObject releases such
// node-set entries with xmlFree, so freeing a result whose entries still point into a freed tree
// hands a kept block to xmlFree a second time, which the trap counts.
std::set<void*> g_kept;
int g_touched = 0;
xmlNode g_element{};

void keep(void* block) {
    if (block == nullptr || !g_kept.insert(block).second) {
        g_touched += block != nullptr;
    } else if (malloc_usable_size(block) >= sizeof(xmlNs)) {
        xmlNs* dressed = static_cast<xmlNs*>(block);
        *dressed = xmlNs{};
        dressed->next = reinterpret_cast<xmlNs*>(&g_element);
        dressed->type = XML_NAMESPACE_DECL;
    }
}

TEST(XPath, DocumentDestroyedBeforeTheHandleHoldingItsResult) {
    xmlFreeFunc savedFree;
    xmlMallocFunc savedMalloc;
    xmlReallocFunc savedRealloc;
    xmlStrdupFunc savedStrdup;
    xmlMemGet(&savedFree, &savedMalloc, &savedRealloc, &savedStrdup);
    g_element.type = XML_ELEMENT_NODE;
    xmlMemSetup(keep, savedMalloc, savedRealloc, savedStrdup);
    g_touched = 0;
    XmlNodePtr handle, root, item;
    {
        const XmlDocumentPtr document = CreateXmlDocument(kRecords);
        // A handle pointed into the tree, the document's shared root handle, and the document's
        // own iterator all hold results when the document goes.
        handle = handleOn(document->GetRoot()->getlibXML2Node());
        EXPECT_EQ(walk(handle->GetIterator("//a")).size(), 4U);
        root = document->GetRoot();
        item = root->GetIterator("//*")->GetFirst();
        EXPECT_EQ(walk(document->GetIterator("//b")).size(), 1U);
    }
    // Freeing the results must not read the nodes of the freed tree.
    handle.reset(), root.reset(), item.reset();
    xmlMemSetup(savedFree, savedMalloc, savedRealloc, savedStrdup);
    for (void* block : g_kept)
        savedFree(block);
    g_kept.clear();
    EXPECT_EQ(g_touched, 0);
}

} // namespace
