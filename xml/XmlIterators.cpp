// Iterators over element children, attributes and XPath results. Each iterator owns one item
// and re-points it at every step, so a walk allocates nothing after the iterator exists.
#include "tarnxml/XmlIterators.h"

#include "tarn/shared.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

namespace tarn {

namespace {

// The first node of kind element from `node` on along the sibling links, or null.
inline xmlNode* elementFrom(xmlNode* node)
{
    while (node != nullptr && node->type != XML_ELEMENT_NODE)
        node = node->next;
    return node;
}

// The first attribute node from `attribute` on along the list, or null. Lists built by hand may
// hold other kinds of node there; they are skipped like non-elements in a child walk.
inline xmlAttr* attributeFrom(xmlAttr* attribute)
{
    while (attribute != nullptr && attribute->type != XML_ATTRIBUTE_NODE)
        attribute = attribute->next;
    return attribute;
}

// The text held by a libxml2 string, or "" for none.
inline std::string textOf(const xmlChar* text)
{
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text)) : EMPTY_STRING;
}

// Frees an XPath result without reading any node it lists: the entries are nulled first, so the
// tree they came from may already be gone.
void releaseResult(xmlXPathObject* result)
{
    if (result == nullptr)
        return;
    if (xmlNodeSet* set = result->nodesetval) {
        for (int i = 0; i < set->nodeNr; ++i)
            set->nodeTab[i] = nullptr;
    }
    xmlXPathFreeObject(result);
}

// Takes the namespace nodes out of a fresh result and frees them. For each namespace node it
// selects, libxml2 puts a copy of the declaration into the node set (its `next` pointing at the
// element in scope); the copies belong to the result, and xmlXPathFreeObject would free them only
// by reading that element, which releaseResult must not do. Namespace nodes are never yielded,
// so the walk sees the same elements in the same order. Runs while the tree is alive.
void dropNamespaceCopies(xmlXPathObject* result)
{
    xmlNodeSet* set = result->nodesetval;
    if (set == nullptr)
        return;
    int kept = 0;
    for (int i = 0; i < set->nodeNr; ++i) {
        xmlNode* entry = set->nodeTab[i];
        if (entry != nullptr && entry->type == XML_NAMESPACE_DECL) {
            xmlXPathNodeSetFreeNs(reinterpret_cast<xmlNs*>(entry));
            continue;
        }
        set->nodeTab[kept++] = entry;
    }
    for (int i = kept; i < set->nodeNr; ++i)
        set->nodeTab[i] = nullptr;
    set->nodeNr = kept;
}

} // namespace

// --- XmlNodeIterator ---------------------------------------------------------------------------

XmlNodeIterator::XmlNodeIterator() : current(nullptr), parent(nullptr), item(new XmlNode) {}

XmlNodeIterator::~XmlNodeIterator() = default;

void XmlNodeIterator::Initialize(_xmlNode* newParent)
{
    // Re-aiming at the same parent keeps the walk where it is.
    if (newParent == parent)
        return;
    parent = newParent;
    current = nullptr;
}

XmlNodePtr XmlNodeIterator::GetFirst()
{
    if (parent == nullptr)
        return XmlNodePtr();
    current = elementFrom(parent->children);
    item->Initialize(current);
    return current != nullptr ? item : XmlNodePtr();
}

XmlNodePtr XmlNodeIterator::GetNext()
{
    if (parent == nullptr)
        return XmlNodePtr();
    if (current != nullptr)
        current = elementFrom(current->next);
    item->Initialize(current);
    return current != nullptr ? item : XmlNodePtr();
}

// --- XmlAttribute ------------------------------------------------------------------------------

XmlAttribute::XmlAttribute() : attribute(nullptr) {}

void XmlAttribute::AttributeSet(_xmlAttr* newAttribute) noexcept { attribute = newAttribute; }

std::string XmlAttribute::GetName() const
{
    if (attribute == nullptr)
        return EMPTY_STRING;
    return textOf(attribute->name);
}

std::string XmlAttribute::GetValue() const
{
    if (attribute == nullptr || attribute->children == nullptr)
        return EMPTY_STRING;
    // The first child holds the whole value for every attribute the library writes.
    return textOf(attribute->children->content);
}

// --- XmlAttributeIterator ----------------------------------------------------------------------

XmlAttributeIterator::XmlAttributeIterator() : current(nullptr), element(nullptr), item(new XmlAttribute) {}

XmlAttributeIterator::~XmlAttributeIterator() = default;

void XmlAttributeIterator::Initialize(_xmlNode* newElement)
{
    if (newElement == element)
        return;
    element = newElement;
    current = nullptr;
}

void XmlAttributeIterator::setItrPtr(_xmlAttr* attribute)
{
    current = attribute;
    item->AttributeSet(attribute);
}

XmlAttributePtr XmlAttributeIterator::GetFirst()
{
    if (element == nullptr)
        return XmlAttributePtr();
    // Only element nodes carry an attribute list; on any other kind the field is not there.
    setItrPtr(attributeFrom(element->type == XML_ELEMENT_NODE ? element->properties : nullptr));
    return current != nullptr ? item : XmlAttributePtr();
}

XmlAttributePtr XmlAttributeIterator::GetNext()
{
    if (element == nullptr || current == nullptr)
        return XmlAttributePtr();
    setItrPtr(attributeFrom(current->next));
    return current != nullptr ? item : XmlAttributePtr();
}

// --- XPathNodeIterator -------------------------------------------------------------------------

XPathNodeIterator::XPathNodeIterator() : xpathResult(nullptr), resultIndex(0), resultItem(new XmlNode) {}

XPathNodeIterator::~XPathNodeIterator()
{
    releaseResult(xpathResult);
    xpathResult = nullptr;
}

void XPathNodeIterator::Initialize(_xmlXPathObject* result)
{
    if (result != nullptr)
        dropNamespaceCopies(result);
    releaseResult(xpathResult);
    xpathResult = result;
    resultIndex = 0;
}

XmlNodePtr XPathNodeIterator::GetFirst()
{
    if (xpathResult == nullptr)
        return XmlNodePtr();
    resultIndex = 0;
    return GetNext();
}

XmlNodePtr XPathNodeIterator::GetNext()
{
    if (xpathResult == nullptr)
        return XmlNodePtr();
    const xmlNodeSet* set = xpathResult->nodesetval;
    const int count = set != nullptr ? set->nodeNr : 0;
    while (resultIndex < count) {
        xmlNode* candidate = set->nodeTab[resultIndex++];
        if (candidate != nullptr && candidate->type == XML_ELEMENT_NODE) {
            resultItem->Initialize(candidate);
            return resultItem;
        }
    }
    resultIndex = count;
    return XmlNodePtr();
}

} // namespace tarn
