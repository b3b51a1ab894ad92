// Child, attribute and XPath iterators: what they yield, how they are re-aimed, and who frees
// their results in which order. That stepping reuses one item is also proven by
// test_iterators_alloc (stepping allocates nothing).
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

TEST(ChildIterator, YieldsElementsThroughOneReusedItemAndIsReaimed) {
    const XmlDocumentPtr document = CreateXmlDocument(
        "<!DOCTYPE r [<!ENTITY e \"<x/>\">]><r><p>t<a/><!--c-->&e;<?pi x?><![CDATA[d]]><b><c/></b>\n<a id=\"2\"/>u</p><q><c/></q></r>");
    const XmlNodePtr handle = document->GetRoot()->GetChild("p");
    XmlNodeIterator* iterator = handle->GetIterator();
    EXPECT_FALSE(iterator->GetNext()); // no position yet
    const XmlNodePtr item = iterator->GetFirst();
    ASSERT_TRUE(item && item->GetName() == "a");
    // Asking again hands out the same iterator, still in place; the one item ends on no node.
    EXPECT_EQ(handle->GetIterator(), iterator);
    EXPECT_EQ(walk(handle->GetIterator(), false), Names({"b", "a2"}));
    EXPECT_TRUE(!iterator->GetNext() && item->getlibXML2Node() == nullptr);
    EXPECT_EQ(walk(iterator), Names({"a", "b", "a2"}));
    // Re-pointing the handle re-aims its iterator, with no position, on the next request.
    ASSERT_TRUE(iterator->GetFirst());
    handle->Initialize(handle->getlibXML2Node()->next);
    EXPECT_FALSE(handle->GetIterator()->GetNext());
    EXPECT_EQ(walk(handle->GetIterator()), Names({"c"}));
    handle->Initialize(nullptr);
    EXPECT_FALSE(handle->GetIterator()->GetFirst() || handle->GetAttributeIterator()->GetFirst());
    // The document hands out its root handle's iterator; without a node or tree there is none.
    EXPECT_EQ(document->GetIterator(), document->GetRoot()->GetIterator());
    EXPECT_EQ(walk(document->GetIterator()), Names({"p", "q"}));
    EXPECT_TRUE(!CreateXmlDocument()->GetIterator() && !CreateXmlDocument()->GetIterator("//a") && !CreateXmlNode()->GetIterator("."));
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
        // At the end the item views no attribute and reads empty.
        EXPECT_EQ(seen + (item ? item->GetName() + item->GetValue() : ""), c.second);
    }
    // An attribute without any value node, and a view of nothing, read empty.
    const XmlNodePtr node = CreateXmlNode("e", "");
    ASSERT_NE(xmlNewProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>("n"), nullptr), nullptr);
    const XmlAttributePtr bare = node->GetAttributeIterator()->GetFirst();
    EXPECT_EQ(bare->GetName() + "=" + bare->GetValue() + XmlAttribute().GetName() + XmlAttribute().GetValue(), "n=");
}

const char* const kRecords =
    "<r><a id=\"1\"/><b id=\"2\">t<a id=\"3\"/></b><a id=\"4\">u</a><c><d><a id=\"5\"/></d></c></r>";

// Each query is asked of the document, of a handle on b, or of a detached node "top" holding one
// child a; then an expression that gives no node set (not a node set, a syntax error, an unknown
// function, prefix or variable, bad bytes) must leave the result and the position alone.
TEST(XPath, QueriesYieldOnlyTheSelectedElementsAndFailingOnesKeepThem) {
    enum On { Doc, B, Top };
    struct Case { On on; const char* xpath; Names expected; const char* failing; };
    const Case cases[] = {
        {Doc, "//a", {"a1", "a3", "a4", "a5"}, "count(//a)"}, {Doc, "/r/*", {"a1", "b2", "a4", "c"}, "'text'"},
        {Doc, "//c/d/a | /r/b", {"b2", "a5"}, "true()"}, {Doc, "/r/nothing", {}, "1 div 0"},
        {Doc, "//node()", {"r", "a1", "b2", "a3", "a4", "c", "d", "a5"}, "//a["},
        // Nodes that are not elements are skipped, alone or mixed with elements; a result without
        // elements still replaces the previous one.
        {Doc, "//@id", {}, ""}, {Doc, "/", {}, "a b"},
        {Doc, "//b/@id | //b/text() | //b/a", {"a3"}, "\xff\xfe"}, {B, "a", {"a3"}, "@"}, {B, "..", {"r"}, "nosuch()"},
        {B, "following-sibling::*", {"a4", "c"}, "//a[nosuch(1)]"}, {B, "/r/a", {"a1", "a4"}, "p:a"}, {B, "@id", {}, "//p:*"},
        {Top, "a", {"a"}, "$v"}, {Top, ".", {"top"}, "//a[@id='1'"}, {Top, "..", {}, "//a]"}, {Top, "/", {}, "count(/)"},
        {Top, "//a", {}, "count(/) + count(//a)"}, {Top, "a", {"a"}, "count(/) + count(//a)"}};
    const tarntest::QuietLibxml2 quiet;
    const XmlDocumentPtr document = CreateXmlDocument(kRecords), fresh = CreateXmlDocument(kRecords);
    const XmlNodePtr b = document->GetRoot()->GetChild("b"), top = CreateXmlNode("top", ""), freshTop = CreateXmlNode("x", "");
    ASSERT_EQ(top->AddChild("a", std::string("x")), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.xpath) + " then " + c.failing);
        const auto query = [&](const char* xpath) { return c.on == Doc ? document->GetIterator(xpath) : (c.on == B ? b : top)->GetIterator(xpath); };
        XPathNodeIterator* iterator = query(c.xpath);
        ASSERT_NE(iterator, nullptr);
        EXPECT_EQ(walk(iterator), c.expected);
        EXPECT_EQ(query(c.xpath), iterator); // right after a query GetNext starts as GetFirst would
        EXPECT_EQ(walk(iterator, false), c.expected);
        const XmlNodePtr item = iterator->GetFirst();
        EXPECT_EQ(query(c.failing), iterator);
        EXPECT_EQ(walk(iterator, false), Names(c.expected.begin() + !c.expected.empty(), c.expected.end()));
        // The one item ends on the last node.
        EXPECT_EQ(item ? item->GetName() + item->GetAttribute("id") : "", c.expected.empty() ? "" : c.expected.back());
        // A document and a detached node that never had a good query have nothing to walk.
        ASSERT_NE(freshTop->GetIterator(c.failing), nullptr);
        EXPECT_EQ(walk(fresh->GetIterator(c.failing)), Names());
        EXPECT_EQ(walk(freshTop->GetIterator(c.failing)), Names());
    }
}

TEST(XPath, FailedLoadOrResetLeavesNoIterator) {
    const XmlDocumentPtr document = CreateXmlDocument(kRecords);
    ASSERT_NE(document->GetIterator("//a"), nullptr);
    const tarntest::QuietLibxml2 quiet;
    EXPECT_EQ(document->Load("not xml", false), -1);
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
    ASSERT_EQ(document->Load("<r><a id=\"9\"/></r>", false), 0);
    EXPECT_EQ(walk(document->GetIterator("//a")), Names({"a9"}));
    document->reset();
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
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
    if (block == nullptr || !g_kept.insert(block).second)
        g_touched += block != nullptr;
    else if (malloc_usable_size(block) >= sizeof(xmlNs))
        *static_cast<xmlNs*>(block) = xmlNs{reinterpret_cast<xmlNs*>(&g_element), XML_NAMESPACE_DECL, nullptr, nullptr, nullptr, nullptr};
}

TEST(XPath, DocumentDestroyedBeforeTheHandleHoldingItsResult) {
    xmlFreeFunc savedFree;
    xmlMallocFunc savedMalloc;
    xmlReallocFunc savedRealloc;
    xmlStrdupFunc savedStrdup;
    xmlMemGet(&savedFree, &savedMalloc, &savedRealloc, &savedStrdup);
    g_element.type = XML_ELEMENT_NODE;
    xmlMemSetup(keep, savedMalloc, savedRealloc, savedStrdup);
    XmlNodePtr handle, root, item;
    {
        const XmlDocumentPtr document = CreateXmlDocument(kRecords);
        // A handle pointed into the tree, the document's shared root handle, and the document's
        // own iterator all hold results when the document goes.
        handle = document->GetRoot()->GetChild("b");
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
    EXPECT_EQ(g_touched, 0);
}

} // namespace
