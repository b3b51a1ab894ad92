// Deep copies: a node with its subtree (owned by a new handle until inserted somewhere), and a
// whole document.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

#include "HandleMemory.h"
#include "TreeWalk.h"

#include <libxml/tree.h>

#include <new>

namespace tarn {

XmlNodePtr XmlNode::Clone() const
{
    if (!node)
        return XmlNodePtr();
    // Deep copy: attributes, namespaces and every descendant; it belongs to no document. Trees
    // built through the API can be deeper than libxml2's recursive copy can go on a thread's
    // stack; copyTree walks those with a loop.
    xmlNode* copy = detail::copyTree(node, nullptr);
    if (!copy)
        throw std::bad_alloc();
    XmlNodePtr handle;
    try {
        handle = detail::makeHandle<XmlNode>();
    } catch (...) {
        // The copy has no owner yet.
        xmlFreeNode(copy);
        throw;
    }
    handle->Initialize(copy);
    handle->setCreatedNode(copy);
    return handle;
}

XmlNodePtr XmlNode::Copy() const
{
    return Clone();
}

boost::shared_ptr<XmlDocument> XmlDocument::Copy() const
{
    boost::shared_ptr<XmlDocument> copy(new XmlDocument);
    // A copy that libxml2 cannot make leaves the new document empty, as the copy of an empty one.
    if (doc)
        copy->doc = detail::copyDocument(doc);
    return copy;
}

XmlDocumentPtr CreateXmlDocument(const XmlDocumentPtr& source)
{
    return source ? source->Copy() : XmlDocumentPtr();
}

} // namespace tarn
