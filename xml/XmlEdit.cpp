// Node editing by libxml2 node pointer: insertion beside a node, renaming, removal and
// namespace-aware attributes (see XmlEdit.h).
#include "tarnxml/XmlEdit.h"

#include <memory>

#include <libxml/tree.h>

#include "tarnxml/XmlHelper.h"

namespace tarn {

namespace {

const xmlChar* xmlText(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }

bool isElement(const xmlNode* node) { return node != nullptr && node->type == XML_ELEMENT_NODE; }

bool isRootElement(const xmlNode* node)
{
    return isElement(node) && node->parent != nullptr &&
           (node->parent->type == XML_DOCUMENT_NODE || node->parent->type == XML_HTML_DOCUMENT_NODE);
}

// A qualified name split against the declarations in scope at `scope`. False for a name that is
// not a QName or whose prefix is not bound there. `unprefixedDefault` gives an unprefixed name
// the default namespace in scope (elements) instead of none (attributes).
bool resolve(xmlNode* scope, const std::string& qualifiedName, bool unprefixedDefault, xmlNs** ns, std::string& local)
{
    if (qualifiedName.empty() || xmlValidateQName(xmlText(qualifiedName), 0) != 0)
        return false;
    const std::string::size_type colon = qualifiedName.find(':');
    *ns = nullptr;
    if (colon == std::string::npos) {
        local = qualifiedName;
        if (unprefixedDefault && scope != nullptr)
            *ns = xmlSearchNs(scope->doc, scope, nullptr);
        return true;
    }
    const std::string prefix = qualifiedName.substr(0, colon);
    local = qualifiedName.substr(colon + 1);
    if (prefix == "xmlns" || scope == nullptr)
        return false;
    *ns = xmlSearchNs(scope->doc, scope, xmlText(prefix));
    return *ns != nullptr;
}

struct NodeFree {
    void operator()(xmlNode* node) const { xmlFreeNode(node); }
};

} // namespace

int InsertElement(_xmlNode* node, XmlInsertPosition where, const std::string& qualifiedName, const std::string& text)
{
    if (node == nullptr)
        return -3;
    xmlNode* const scope = where == XmlInsertPosition::LastChild ? node : node->parent;
    if (!isElement(scope) || node->type == XML_ATTRIBUTE_NODE || node->type == XML_NAMESPACE_DECL)
        return -1;
    xmlNs* ns = nullptr;
    std::string local;
    if (!resolve(scope, qualifiedName, true, &ns, local))
        return -1;
    std::unique_ptr<xmlNode, NodeFree> element(xmlNewDocNode(node->doc, ns, xmlText(local), nullptr));
    if (!element)
        throw std::bad_alloc();
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(text, scratch);
    if (clean.size != 0) {
        xmlNode* const textNode = xmlNewDocTextLen(node->doc, reinterpret_cast<const xmlChar*>(clean.data),
                                                   static_cast<int>(clean.size));
        if (textNode == nullptr)
            throw std::bad_alloc();
        xmlAddChild(element.get(), textNode);
    }
    // An element never merges with a text neighbour, so the node placed is the one made.
    xmlNode* const placed = where == XmlInsertPosition::LastChild ? xmlAddChild(node, element.get())
                            : where == XmlInsertPosition::Before  ? xmlAddPrevSibling(node, element.get())
                                                                  : xmlAddNextSibling(node, element.get());
    if (placed == nullptr)
        return -1;
    element.release();
    return 0;
}

int RenameNode(_xmlNode* node, const std::string& qualifiedName)
{
    if (node == nullptr)
        return -3;
    if (node->type != XML_ELEMENT_NODE && node->type != XML_ATTRIBUTE_NODE)
        return -1;
    const bool element = node->type == XML_ELEMENT_NODE;
    xmlNs* ns = nullptr;
    std::string local;
    if (!resolve(element ? node : node->parent, qualifiedName, element, &ns, local))
        return -1;
    if (!element) {
        // Two attributes of one name and namespace would not be well-formed.
        xmlAttr* const same = xmlHasNsProp(node->parent, xmlText(local), ns != nullptr ? ns->href : nullptr);
        if (same != nullptr && reinterpret_cast<xmlNode*>(same) != node)
            return -1;
    }
    xmlNodeSetName(node, xmlText(local));
    xmlSetNs(node, ns);
    return 0;
}

int RemoveNode(_xmlNode* node)
{
    if (node == nullptr)
        return -3;
    switch (node->type) {
    case XML_ATTRIBUTE_NODE:
        return xmlRemoveProp(reinterpret_cast<xmlAttr*>(node)) == 0 ? 0 : -1;
    case XML_ELEMENT_NODE:
        if (isRootElement(node))
            return -1;
        break;
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
    case XML_ENTITY_REF_NODE:
        break;
    default:
        return -1;
    }
    xmlUnlinkNode(node);
    xmlFreeNode(node);
    return 0;
}

int SetQualifiedAttribute(_xmlNode* element, const std::string& qualifiedName, const std::string& value)
{
    if (element == nullptr)
        return -3;
    xmlNs* ns = nullptr;
    std::string local;
    if (!isElement(element) || qualifiedName == "xmlns" || !resolve(element, qualifiedName, false, &ns, local))
        return -1;
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(value, scratch);
    // The view ends in a zero byte (it refers to a std::string or the constant empty text).
    return xmlSetNsProp(element, ns, xmlText(local), reinterpret_cast<const xmlChar*>(clean.data)) != nullptr ? 0 : -1;
}

int RemoveQualifiedAttribute(_xmlNode* element, const std::string& qualifiedName)
{
    if (element == nullptr)
        return -3;
    xmlNs* ns = nullptr;
    std::string local;
    if (!isElement(element) || !resolve(element, qualifiedName, false, &ns, local))
        return -1;
    xmlAttr* const attribute = xmlHasNsProp(element, xmlText(local), ns != nullptr ? ns->href : nullptr);
    // xmlHasNsProp also reports attributes a DTD declares with a default; those are not in the tree.
    if (attribute == nullptr || attribute->type != XML_ATTRIBUTE_NODE)
        return -1;
    return xmlRemoveProp(attribute) == 0 ? 0 : -1;
}

_xmlNode* ParentNode(_xmlNode* node) noexcept
{
    return node != nullptr && node->type != XML_NAMESPACE_DECL ? node->parent : nullptr;
}

} // namespace tarn
