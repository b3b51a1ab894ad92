// XmlReader::getAttribute: the values xmlTextReaderGetAttribute / xmlTextReaderGetAttributeNs
// give, read in linear time through entity references (EntityText.h) instead of through
// xmlGetProp's concatenation.
#include "EntityText.h"
#include "ReaderExtras.h"

#include <libxml/tree.h>
#include <libxml/xmlmemory.h>
#include <libxml/xmlreader.h>

namespace tarn {
namespace detail {

namespace {

const xmlChar* xmlText(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
const char* charText(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

// The element the reader stands on when it stands on one (not on one of its attributes):
// libxml2 answers attribute requests only there.
const xmlNode* currentElement(_xmlTextReader* reader)
{
    const xmlNode* const node = xmlTextReaderCurrentNode(reader);
    return node != nullptr && node->type == XML_ELEMENT_NODE ? node : nullptr;
}

// The URI declared on the element itself for `prefix` (null: the default namespace).
std::string declaredHere(const xmlNode* element, const xmlChar* prefix, bool* found)
{
    for (const xmlNs* ns = element->nsDef; ns != nullptr; ns = ns->next) {
        if (prefix == nullptr ? ns->prefix == nullptr : (ns->prefix != nullptr && xmlStrEqual(ns->prefix, prefix))) {
            *found = true;
            return ns->href != nullptr ? charText(ns->href) : "";
        }
    }
    return std::string();
}

} // namespace

std::string readerAttribute(_xmlTextReader* reader, const char* name)
{
    const xmlNode* const element = currentElement(reader);
    if (element == nullptr || name == nullptr)
        return std::string();
    bool found = false;
    xmlChar* prefix = nullptr;
    xmlChar* const local = xmlSplitQName2(xmlText(name), &prefix);
    std::string value;
    if (local == nullptr) {
        value = xmlStrEqual(xmlText(name), xmlText("xmlns")) ? declaredHere(element, nullptr, &found)
                                                               : attributeText(element, name);
    } else if (xmlStrEqual(prefix, xmlText("xmlns"))) {
        value = declaredHere(element, local, &found);
    } else if (const xmlNs* ns = xmlSearchNs(element->doc, const_cast<xmlNode*>(element), prefix)) {
        value = attributeText(element, charText(local), charText(ns->href));
    }
    xmlFree(local);
    xmlFree(prefix);
    return value;
}

std::string readerAttribute(_xmlTextReader* reader, const char* localName, const char* namespaceURI)
{
    const xmlNode* const element = currentElement(reader);
    if (element == nullptr || localName == nullptr)
        return std::string();
    if (xmlStrEqual(xmlText(namespaceURI), xmlText("http://www.w3.org/2000/xmlns/"))) {
        bool found = false;
        const bool isDefault = xmlStrEqual(xmlText(localName), xmlText("xmlns"));
        return declaredHere(element, isDefault ? nullptr : xmlText(localName), &found);
    }
    return attributeText(element, localName, namespaceURI);
}

} // namespace detail
} // namespace tarn
