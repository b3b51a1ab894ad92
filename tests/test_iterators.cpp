// Child, attribute and XPath iterators: what they yield, how they are re-aimed, and who frees
// their results in which order.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "TestSupport.h"

#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlmemory.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <malloc.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

using tarn::XmlAttributeIterator;
using tarn::XmlAttributePtr;
using tarn::XmlDocumentPtr;
using tarn::XmlNodeIterator;
using tarn::XmlNodePtr;
using tarn::XPathNodeIterator;

namespace {

XmlDocumentPtr load(const std::string& text)
{
    XmlDocumentPtr document = tarn::CreateXmlDocument(text);
    EXPECT_TRUE(document) << text;
    return document;
}

// The label of a yielded element: its name, plus its id attribute when it has one.
std::string label(const XmlNodePtr& node)
{
    std::string text = node->GetName();
    if (xmlChar* id = xmlGetProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>("id"))) {
        text += reinterpret_cast<const char*>(id);
        xmlFree(id);
    }
    return text;
}

// A new handle on the first element child of `parent` named `name`, or an empty pointer.
XmlNodePtr childNamed(const XmlNodePtr& parent, const std::string& name)
{
    for (xmlNode* child = parent->getlibXML2Node()->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && name == reinterpret_cast<const char*>(child->name)) {
            XmlNodePtr handle = tarn::CreateXmlNode();
            handle->Initialize(child);
            return handle;
        }
    }
    return XmlNodePtr();
}

void setAttribute(const XmlNodePtr& node, const char* name, const char* value)
{
    ASSERT_NE(xmlSetProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>(name),
                         reinterpret_cast<const xmlChar*>(value)),
              nullptr);
}

// Walks an iterator from GetFirst to the end.
std::vector<std::string> walk(XmlNodeIterator* iterator)
{
    std::vector<std::string> labels;
    if (iterator == nullptr)
        return labels;
    for (XmlNodePtr node = iterator->GetFirst(); node; node = iterator->GetNext())
        labels.push_back(label(node));
    return labels;
}

// Continues a walk with GetNext only.
std::vector<std::string> rest(XmlNodeIterator* iterator)
{
    std::vector<std::string> labels;
    for (XmlNodePtr node = iterator->GetNext(); node; node = iterator->GetNext())
        labels.push_back(label(node));
    return labels;
}

typedef std::vector<std::string> Names;

// --- Child iterator ------------------------------------------------------------------------------

TEST(ChildIterator, YieldsOnlyElementChildrenInDocumentOrder)
{
    struct Case {
        const char* text;
        Names expected;
    };
    const Case cases[] = {
        {"<r>t<a/><!--c--><b/>u</r>", {"a", "b"}},
        {"<r/>", {}},
        {"<r>only text</r>", {}},
        {"<r><!--c--><?pi x?><![CDATA[d]]></r>", {}},
        {"<r>\n  <a/>\n  <?pi x?>\n  <b><c/></b>\n  <![CDATA[d]]><a id=\"2\"/>\n</r>", {"a", "b", "a2"}},
        {"<!DOCTYPE r [<!ENTITY e \"<x/>\">]><r>&e;<y/></r>", {"y"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const XmlDocumentPtr document = load(c.text);
        ASSERT_TRUE(document);
        XmlNodeIterator* iterator = document->GetRoot()->GetIterator();
        EXPECT_EQ(walk(iterator), c.expected);
        // Past the end the walk stays ended and the item refers to no node.
        const XmlNodePtr first = iterator->GetFirst();
        for (size_t i = 1; i < c.expected.size(); ++i)
            iterator->GetNext();
        EXPECT_FALSE(iterator->GetNext());
        EXPECT_FALSE(iterator->GetNext());
        if (first) {
            EXPECT_EQ(first->getlibXML2Node(), nullptr);
        }
    }
}

TEST(ChildIterator, YieldsOneReusedItemAndEndsOnNoNode)
{
    const XmlDocumentPtr document = load("<r>t<a/><!--c--><b/>u</r>");
    XmlNodeIterator* iterator = document->GetRoot()->GetIterator();
    const XmlNodePtr first = iterator->GetFirst();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->GetName(), "a");
    const XmlNodePtr second = iterator->GetNext();
    ASSERT_TRUE(second);
    EXPECT_EQ(second.get(), first.get());
    EXPECT_EQ(first->GetName(), "b");
    EXPECT_FALSE(iterator->GetNext());
    EXPECT_EQ(first->getlibXML2Node(), nullptr);
}

TEST(ChildIterator, RepeatedRequestKeepsPositionAndGetFirstRewinds)
{
    const XmlDocumentPtr document = load("<r><a/><b/><c/></r>");
    const XmlNodePtr root = document->GetRoot();
    XmlNodeIterator* iterator = root->GetIterator();
    // A fresh iterator has no position yet.
    EXPECT_FALSE(iterator->GetNext());
    ASSERT_TRUE(iterator->GetFirst());
    ASSERT_TRUE(iterator->GetNext());
    EXPECT_EQ(root->GetIterator(), iterator);
    EXPECT_EQ(rest(root->GetIterator()), Names({"c"}));
    EXPECT_EQ(walk(root->GetIterator()), Names({"a", "b", "c"}));
}

TEST(ChildIterator, ReaimingAtAnotherNodeResetsThePosition)
{
    const XmlDocumentPtr document = load("<r><p><a/><b/></p><q><c/></q></r>");
    const XmlNodePtr p = childNamed(document->GetRoot(), "p");
    const XmlNodePtr q = childNamed(document->GetRoot(), "q");
    ASSERT_TRUE(p && q);

    XmlNodeIterator iterator;
    iterator.Initialize(p->getlibXML2Node());
    ASSERT_TRUE(iterator.GetFirst());
    iterator.Initialize(q->getlibXML2Node());
    EXPECT_FALSE(iterator.GetNext()); // aimed, not started
    EXPECT_EQ(walk(&iterator), Names({"c"}));

    // The same through a handle: re-pointing the handle re-aims its iterator on the next request.
    XmlNodePtr handle = tarn::CreateXmlNode();
    handle->Initialize(p->getlibXML2Node());
    ASSERT_TRUE(handle->GetIterator()->GetFirst());
    handle->Initialize(q->getlibXML2Node());
    EXPECT_FALSE(handle->GetIterator()->GetNext());
    EXPECT_EQ(walk(handle->GetIterator()), Names({"c"}));
    handle->Initialize(nullptr);
    EXPECT_FALSE(handle->GetIterator()->GetFirst());
}

TEST(ChildIterator, NestedWalksUseTheYieldedHandlesOwnIterators)
{
    const XmlDocumentPtr document = load("<r><p><a/><b/></p><q/><s><c/></s></r>");
    XmlNodeIterator* outer = document->GetRoot()->GetIterator();
    std::vector<std::string> seen;
    for (XmlNodePtr child = outer->GetFirst(); child; child = outer->GetNext()) {
        seen.push_back(child->GetName() + ":");
        for (const std::string& name : walk(child->GetIterator()))
            seen.back() += name;
    }
    EXPECT_EQ(seen, Names({"p:ab", "q:", "s:c"}));
}

TEST(ChildIterator, UnaimedIteratorsYieldNothing)
{
    XmlNodeIterator iterator;
    EXPECT_FALSE(iterator.GetFirst());
    EXPECT_FALSE(iterator.GetNext());

    const XmlNodePtr empty = tarn::CreateXmlNode();
    ASSERT_NE(empty->GetIterator(), nullptr);
    EXPECT_FALSE(empty->GetIterator()->GetFirst());
    EXPECT_FALSE(empty->GetIterator()->GetNext());
    ASSERT_NE(empty->GetAttributeIterator(), nullptr);
    EXPECT_FALSE(empty->GetAttributeIterator()->GetFirst());
    EXPECT_FALSE(empty->GetAttributeIterator()->GetNext());
}

TEST(ChildIterator, DetachedNodeChildrenAreWalked)
{
    const XmlNodePtr node = tarn::CreateXmlNode("top", "text");
    ASSERT_EQ(node->AddChild("a", std::string("1")), 0);
    ASSERT_EQ(node->AddChild("b", std::string("")), 0);
    EXPECT_EQ(walk(node->GetIterator()), Names({"a", "b"}));
}

TEST(ChildIterator, KeptItemOutlivesItsIterator)
{
    XmlNodePtr kept;
    const XmlDocumentPtr document = load("<r><a/><b/></r>");
    {
        const XmlNodePtr handle = tarn::CreateXmlNode();
        handle->Initialize(document->GetRoot()->getlibXML2Node());
        kept = handle->GetIterator()->GetFirst();
        ASSERT_TRUE(kept);
    }
    // The handle and its iterator are gone; the item is still a valid handle on the a element.
    EXPECT_EQ(kept->GetName(), "a");
}

// --- Document child iterator ---------------------------------------------------------------------

TEST(DocumentIterator, HandsOutTheRootHandlesChildIterator)
{
    const XmlDocumentPtr empty = tarn::CreateXmlDocument();
    EXPECT_EQ(empty->GetIterator(), nullptr);

    const XmlDocumentPtr document = load("<r>x<a/><b id=\"1\"/></r>");
    XmlNodeIterator* iterator = document->GetIterator();
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(iterator, document->GetRoot()->GetIterator());
    EXPECT_EQ(walk(iterator), Names({"a", "b1"}));

    // Without a root element there is nothing to walk.
    XmlNodePtr root = document->GetRoot();
    root->Remove();
    EXPECT_EQ(document->GetIterator(), nullptr);
}

// --- Attribute iterator --------------------------------------------------------------------------

std::vector<std::string> attributes(XmlAttributeIterator* iterator)
{
    std::vector<std::string> seen;
    for (XmlAttributePtr attribute = iterator->GetFirst(); attribute; attribute = iterator->GetNext())
        seen.push_back(attribute->GetName() + "=" + attribute->GetValue());
    return seen;
}

TEST(AttributeIterator, YieldsNameAndValueOfEachAttribute)
{
    struct Case {
        const char* text;
        Names expected;
    };
    const Case cases[] = {
        {"<e a=\"1\" b=\"2\"/>", {"a=1", "b=2"}},
        {"<e/>", {}},
        {"<e a=\"\"/>", {"a="}},
        {"<e a=\"x&amp;y &lt;z&gt;\"/>", {"a=x&y <z>"}},
        {"<e a=\"&#233;\"/>", {"a=\xC3\xA9"}},
        // Namespace declarations are not attributes; prefixed attributes give their local name.
        {"<e xmlns=\"urn:u\" xmlns:p=\"urn:v\" p:a=\"1\" b=\"2\"/>", {"a=1", "b=2"}},
        // Only the value's first piece is read: an entity reference splits it (a reference node
        // carries the entity's text as its content).
        {"<!DOCTYPE e [<!ENTITY x \"X\">]><e a=\"p&x;q\" b=\"&x;\"/>", {"a=p", "b=X"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const XmlDocumentPtr document = load(c.text);
        ASSERT_TRUE(document);
        EXPECT_EQ(attributes(document->GetRoot()->GetAttributeIterator()), c.expected);
    }
}

TEST(AttributeIterator, ReusedViewEndsOnNoAttribute)
{
    const XmlDocumentPtr document = load("<e a=\"1\" b=\"2\"/>");
    const XmlNodePtr root = document->GetRoot();
    XmlAttributeIterator* iterator = root->GetAttributeIterator();
    EXPECT_FALSE(iterator->GetNext()); // not started
    const XmlAttributePtr first = iterator->GetFirst();
    ASSERT_TRUE(first);
    const XmlAttributePtr second = iterator->GetNext();
    ASSERT_TRUE(second);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first->GetName(), "b");
    EXPECT_FALSE(iterator->GetNext());
    EXPECT_FALSE(iterator->GetNext());
    EXPECT_EQ(first->GetName(), "");
    EXPECT_EQ(first->GetValue(), "");

    // Asking again does not rewind; GetFirst does.
    ASSERT_TRUE(iterator->GetFirst());
    EXPECT_EQ(root->GetAttributeIterator(), iterator);
    ASSERT_TRUE(root->GetAttributeIterator()->GetNext());
    EXPECT_EQ(first->GetName(), "b");
}

TEST(AttributeIterator, AttributesAddedLaterAreSeenAndViewsWorkAlone)
{
    const XmlNodePtr node = tarn::CreateXmlNode("e", "");
    setAttribute(node, "k", "v1");
    setAttribute(node, "m", "v2");
    EXPECT_EQ(attributes(node->GetAttributeIterator()), Names({"k=v1", "m=v2"}));

    tarn::XmlAttribute view;
    EXPECT_EQ(view.GetName(), "");
    EXPECT_EQ(view.GetValue(), "");
    view.AttributeSet(node->getlibXML2Node()->properties);
    EXPECT_EQ(view.GetName() + view.GetValue(), "kv1");

    // An attribute without children reads as empty.
    xmlAttr* bare = xmlNewProp(node->getlibXML2Node(), reinterpret_cast<const xmlChar*>("n"), nullptr);
    ASSERT_NE(bare, nullptr);
    view.AttributeSet(bare);
    EXPECT_EQ(view.GetName(), "n");
    EXPECT_EQ(view.GetValue(), "");
}

TEST(AttributeIterator, NonElementNodesHaveNoAttributes)
{
    const XmlDocumentPtr document = load("<e a=\"1\">text<!--c--></e>");
    XmlAttributeIterator iterator;
    xmlNode* element = document->GetRoot()->getlibXML2Node();
    iterator.Initialize(element->children);
    EXPECT_FALSE(iterator.GetFirst());
    iterator.Initialize(element->children->next);
    EXPECT_FALSE(iterator.GetFirst());
    iterator.Initialize(element);
    EXPECT_EQ(attributes(&iterator), Names({"a=1"}));
}

// --- XPath queries -------------------------------------------------------------------------------

const char* const kRecords =
    "<r><a id=\"1\"/><b id=\"2\">t<a id=\"3\"/></b><a id=\"4\">u</a><c><d><a id=\"5\"/></d></c></r>";

TEST(XPath, DocumentQueriesYieldTheSelectedElements)
{
    struct Case {
        const char* xpath;
        Names expected;
    };
    const Case cases[] = {
        {"//a", {"a1", "a3", "a4", "a5"}},
        {"/r/a", {"a1", "a4"}},
        {"/r/*", {"a1", "b2", "a4", "c"}},
        {"//*[@id > 2]", {"a3", "a4", "a5"}},
        {"//a[last()]", {"a3", "a4", "a5"}},
        {"(//a)[2]", {"a3"}},
        {"//c/d/a | /r/b", {"b2", "a5"}},
        {"/r/nothing", {}},
        // Nodes that are not elements are skipped, alone or mixed with elements.
        {"//@id", {}},
        {"//text()", {}},
        {"/", {}},
        {"//node()", {"r", "a1", "b2", "a3", "a4", "c", "d", "a5"}},
        {"//b/@id | //b/text() | //b/a", {"a3"}},
    };
    const XmlDocumentPtr document = load(kRecords);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        XPathNodeIterator* iterator = document->GetIterator(c.xpath);
        ASSERT_NE(iterator, nullptr);
        EXPECT_EQ(walk(iterator), c.expected);
        // Right after a query GetNext starts the walk as GetFirst would.
        document->GetIterator(c.xpath);
        EXPECT_EQ(rest(iterator), c.expected);
    }
}

TEST(XPath, HandleQueriesStartAtTheHandlesNode)
{
    struct Case {
        const char* xpath;
        Names expected;
    };
    const Case cases[] = {
        {"a", {"a3"}},
        {".", {"b2"}},
        {"..", {"r"}},
        {"*", {"a3"}},
        {"following-sibling::*", {"a4", "c"}},
        {".//a | ../c//a", {"a3", "a5"}},
        {"//d", {"d"}},
        {"/r/a", {"a1", "a4"}},
        {"@id", {}},
    };
    const XmlDocumentPtr document = load(kRecords);
    const XmlNodePtr b = childNamed(document->GetRoot(), "b");
    ASSERT_TRUE(b);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        EXPECT_EQ(walk(b->GetIterator(c.xpath)), c.expected);
    }
}

TEST(XPath, ExpressionsThatGiveNoNodeSetKeepThePreviousResultAndPosition)
{
    const char* const failing[] = {
        "count(//a)", "'text'", "true()", "1 div 0", "string(//a/@id)", // not node sets
        "//a[", "", "///", "a b", "//a]", "@",                          // syntax errors
        "nosuch()", "//a[nosuch(1)]",                                   // unknown functions
        "p:a", "//p:*", "$v",                                           // unbound prefix, variable
        "//a[@id='1'", "\xff\xfe",                                      // unterminated, bad bytes
    };
    const tarntest::QuietLibxml2 quiet;
    const XmlDocumentPtr document = load(kRecords);
    const XmlNodePtr b = childNamed(document->GetRoot(), "b");
    ASSERT_TRUE(b);
    for (const char* xpath : failing) {
        SCOPED_TRACE(xpath);
        // A fresh document and handle have no previous result: nothing to walk.
        const XmlDocumentPtr fresh = load(kRecords);
        XPathNodeIterator* freshIterator = fresh->GetIterator(xpath);
        ASSERT_NE(freshIterator, nullptr);
        EXPECT_EQ(walk(freshIterator), Names());
        const XmlNodePtr freshHandle = tarn::CreateXmlNode("x", "");
        ASSERT_NE(freshHandle->GetIterator(xpath), nullptr);
        EXPECT_EQ(walk(freshHandle->GetIterator(xpath)), Names());

        // After a good query, the failing one leaves the result and the position alone.
        XPathNodeIterator* iterator = document->GetIterator("//a");
        ASSERT_TRUE(iterator->GetFirst());
        EXPECT_EQ(document->GetIterator(xpath), iterator);
        EXPECT_EQ(rest(iterator), Names({"a3", "a4", "a5"}));
        EXPECT_EQ(walk(iterator), Names({"a1", "a3", "a4", "a5"}));

        XPathNodeIterator* handleIterator = b->GetIterator("a|..");
        ASSERT_TRUE(handleIterator->GetFirst());
        EXPECT_EQ(b->GetIterator(xpath), handleIterator);
        EXPECT_EQ(rest(handleIterator), Names({"a3"}));
    }
}

TEST(XPath, AnEmptyNodeSetReplacesThePreviousResult)
{
    const XmlDocumentPtr document = load(kRecords);
    XPathNodeIterator* iterator = document->GetIterator("//a");
    ASSERT_TRUE(iterator->GetFirst());
    EXPECT_EQ(document->GetIterator("//zz"), iterator);
    EXPECT_FALSE(iterator->GetFirst());
    EXPECT_FALSE(iterator->GetNext());
}

TEST(XPath, WalkEndsWithTheItemOnTheLastNode)
{
    const XmlDocumentPtr document = load(kRecords);
    XPathNodeIterator* iterator = document->GetIterator("/r/a | //d");
    const XmlNodePtr item = iterator->GetFirst();
    ASSERT_TRUE(item);
    EXPECT_EQ(label(item), "a1");
    const XmlNodePtr next = iterator->GetNext();
    EXPECT_EQ(next.get(), item.get());
    EXPECT_EQ(label(item), "a4");
    ASSERT_TRUE(iterator->GetNext());
    EXPECT_FALSE(iterator->GetNext());
    EXPECT_FALSE(iterator->GetNext());
    EXPECT_EQ(label(item), "d");
    // A result without elements leaves the item where the previous walk left it.
    document->GetIterator("//@id");
    EXPECT_FALSE(iterator->GetFirst());
    EXPECT_EQ(label(item), "d");
}

TEST(XPath, MissingNodeOrTreeGivesNoIterator)
{
    const XmlNodePtr empty = tarn::CreateXmlNode();
    EXPECT_EQ(empty->GetIterator("//a"), nullptr);
    EXPECT_EQ(empty->GetIterator("."), nullptr);

    const XmlDocumentPtr nothing = tarn::CreateXmlDocument();
    EXPECT_EQ(nothing->GetIterator("//a"), nullptr);

    // A failed load leaves the document without a tree, and without its old iterator.
    const XmlDocumentPtr document = load(kRecords);
    ASSERT_NE(document->GetIterator("//a"), nullptr);
    const tarntest::QuietLibxml2 quiet;
    EXPECT_EQ(document->Load("not xml", false), -1);
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
    ASSERT_EQ(document->Load("<r><a id=\"9\"/></r>", false), 0);
    EXPECT_EQ(walk(document->GetIterator("//a")), Names({"a9"}));
}

TEST(XPath, NodeWithoutDocumentIsQueriedWithoutOne)
{
    const tarntest::QuietLibxml2 quiet;
    const XmlNodePtr node = tarn::CreateXmlNode("top", "");
    ASSERT_EQ(node->AddChild("a", std::string("x")), 0);
    ASSERT_EQ(node->AddChild("b", std::string("")), 0);
    ASSERT_EQ(node->getlibXML2Node()->doc, nullptr);
    struct Case {
        const char* xpath;
        Names expected;
    };
    const Case cases[] = {
        {"a", {"a"}},
        {"*", {"a", "b"}},
        {".", {"top"}},
        {"..", {}},
        {"/", {}},
        {"/top", {}},
        {"//a", {}},
        {"id('x')", {}},
        {"b/a", {}},
        {"a", {"a"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xpath);
        XPathNodeIterator* iterator = node->GetIterator(c.xpath);
        ASSERT_NE(iterator, nullptr);
        EXPECT_EQ(walk(iterator), c.expected);
    }
    // A number computed over the missing document keeps the previous result.
    EXPECT_EQ(walk(node->GetIterator("count(/) + count(//a)")), Names({"a"}));
}

// libxml2 is not built with AddressSanitizer, so ASan cannot see it read a node that has been
// freed. While this trap is alive, blocks that libxml2 frees are kept, not released, and each one
// is dressed as a namespace node whose "next" link points at an element: xmlXPathFreeObject
// releases such entries of a node set with xmlFree, so freeing a result whose entries still point
// into a freed tree hands a kept block to xmlFree a second time, which the trap counts.
class FreedTreeTrap {
public:
    FreedTreeTrap()
    {
        xmlMemGet(&savedFree, &savedMalloc, &savedRealloc, &savedStrdup);
        kept().clear();
        touched() = 0;
        xmlMemSetup(keep, savedMalloc, savedRealloc, savedStrdup);
    }
    ~FreedTreeTrap()
    {
        xmlMemSetup(savedFree, savedMalloc, savedRealloc, savedStrdup);
        for (void* block : kept())
            savedFree(block);
        kept().clear();
    }
    FreedTreeTrap(const FreedTreeTrap&) = delete;
    FreedTreeTrap& operator=(const FreedTreeTrap&) = delete;

    static int& touched()
    {
        static int count = 0;
        return count;
    }

private:
    static std::set<void*>& kept()
    {
        static std::set<void*> blocks;
        return blocks;
    }
    static void keep(void* block)
    {
        if (block == nullptr)
            return;
        if (!kept().insert(block).second) {
            ++touched();
            return;
        }
        static xmlNode element = [] {
            xmlNode node{};
            node.type = XML_ELEMENT_NODE;
            return node;
        }();
        if (malloc_usable_size(block) >= sizeof(xmlNs)) {
            xmlNs* dressed = static_cast<xmlNs*>(block);
            std::memset(static_cast<void*>(dressed), 0, sizeof(xmlNs));
            dressed->next = reinterpret_cast<xmlNs*>(&element);
            dressed->type = XML_NAMESPACE_DECL;
        }
    }

    xmlFreeFunc savedFree = nullptr;
    xmlMallocFunc savedMalloc = nullptr;
    xmlReallocFunc savedRealloc = nullptr;
    xmlStrdupFunc savedStrdup = nullptr;
};

TEST(XPath, DocumentDestroyedBeforeTheHandleHoldingItsResult)
{
    const FreedTreeTrap trap;
    XmlNodePtr handle;
    XmlNodePtr root;
    XmlNodePtr item;
    {
        const XmlDocumentPtr document = load(kRecords);
        // One handle pointed into the tree, plus the document's own shared root handle.
        handle = tarn::CreateXmlNode();
        handle->Initialize(document->GetRoot()->getlibXML2Node());
        ASSERT_EQ(walk(handle->GetIterator("//a")).size(), 4U);
        root = document->GetRoot();
        item = root->GetIterator("//*")->GetFirst();
        ASSERT_TRUE(item);
        // And the document's own iterator holds a result when the document goes.
        ASSERT_EQ(walk(document->GetIterator("//b")).size(), 1U);
    }
    // Freeing the results must not read the nodes of the freed tree.
    handle.reset();
    root.reset();
    item.reset();
    EXPECT_EQ(FreedTreeTrap::touched(), 0);
}

TEST(XPath, ReloadAndResetDropTheDocumentsIterator)
{
    const XmlDocumentPtr document = load(kRecords);
    ASSERT_EQ(walk(document->GetIterator("//a")).size(), 4U);
    ASSERT_EQ(document->Load("<r><a id=\"7\"/></r>", false), 0);
    EXPECT_EQ(walk(document->GetIterator("//a")), Names({"a7"}));
    ASSERT_NE(document->GetIterator("//a"), nullptr);
    document->reset();
    EXPECT_EQ(document->GetIterator("//a"), nullptr);
}

TEST(XPath, IteratorMadeDirectlyTakesAndFreesResults)
{
    const XmlDocumentPtr document = load(kRecords);
    xmlDoc* doc = document->GetRoot()->getlibXML2Node()->doc;
    XPathNodeIterator iterator;
    EXPECT_FALSE(iterator.GetFirst());
    EXPECT_FALSE(iterator.GetNext());

    // A node set with non-element entries: only elements come out.
    xmlNode* root = xmlDocGetRootElement(doc);
    xmlNodeSet* set = xmlXPathNodeSetCreate(root->children);
    ASSERT_NE(set, nullptr);
    xmlXPathNodeSetAdd(set, reinterpret_cast<xmlNode*>(root->children->properties)); // id="1"
    xmlXPathNodeSetAdd(set, root->children->next->children);                         // the text "t"
    xmlXPathNodeSetAdd(set, root->children->next->children->next);          // a3
    iterator.Initialize(xmlXPathWrapNodeSet(set));
    EXPECT_EQ(walk(&iterator), Names({"a1", "a3"}));

    // A result without a node set yields nothing.
    iterator.Initialize(xmlXPathWrapNodeSet(nullptr));
    EXPECT_FALSE(iterator.GetFirst());
    EXPECT_FALSE(iterator.GetNext());
}

} // namespace
