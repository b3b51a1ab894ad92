// The iterator factories of node handles and documents: child and attribute walks, XPath queries.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "XPathSupport.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>

namespace tarn {

namespace {

struct ContextDeleter {
    void operator()(xmlXPathContext* context) const noexcept { xmlXPathFreeContext(context); }
};

// Evaluates `xpath` on `doc` with `node` as the context node (null: none) and hands a node-set
// result to `iterator`. Anything else (a failed evaluation, a number, string or boolean) leaves
// the iterator with the result and position it had. `doc` may be null for a node that belongs
// to no document: libxml2 then evaluates without one, and absolute paths select nothing.
void runQuery(xmlDoc* doc, xmlNode* node, const std::string& xpath, XPathNodeIterator* iterator)
{
    const std::unique_ptr<xmlXPathContext, ContextDeleter> context(xmlXPathNewContext(doc));
    if (!context)
        return;
    if (node != nullptr)
        context->node = node;
    detail::keepNodeSet(xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(xpath.c_str()), context.get()),
                        *iterator);
}

} // namespace

// --- Node handle -------------------------------------------------------------------------------

XmlNodeIterator* XmlNode::GetIterator()
{
    if (childIterator == nullptr)
        childIterator = new XmlNodeIterator;
    childIterator->Initialize(node);
    return childIterator;
}

XPathNodeIterator* XmlNode::GetIterator(const std::string& xpath)
{
    if (node == nullptr)
        return nullptr;
    if (xpathIterator == nullptr)
        xpathIterator = new XPathNodeIterator;
    runQuery(node->doc, node, xpath, xpathIterator);
    return xpathIterator;
}

XmlAttributeIterator* XmlNode::GetAttributeIterator()
{
    if (attributeIterator == nullptr)
        attributeIterator = new XmlAttributeIterator;
    attributeIterator->Initialize(node);
    return attributeIterator;
}

// --- Document ----------------------------------------------------------------------------------

XmlNodeIterator* XmlDocument::GetIterator()
{
    const XmlNodePtr rootHandle = GetRoot();
    if (!rootHandle)
        return nullptr;
    return rootHandle->GetIterator();
}

XPathNodeIterator* XmlDocument::GetIterator(const std::string& xpath)
{
    if (doc == nullptr)
        return nullptr;
    if (xpathIterator == nullptr)
        xpathIterator = new XPathNodeIterator;
    runQuery(doc, nullptr, xpath, xpathIterator);
    return xpathIterator;
}

} // namespace tarn
