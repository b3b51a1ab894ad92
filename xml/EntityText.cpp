// Attribute values through entity references in linear time (see EntityText.h).
#include "EntityText.h"

#include <libxml/entities.h>
#include <libxml/tree.h>

#include <cstring>
#include <unordered_set>
#include <vector>

namespace tarn {
namespace detail {

namespace {

std::size_t length(const xmlChar* text)
{
    return text != nullptr ? std::strlen(reinterpret_cast<const char*>(text)) : 0;
}

// Walks the list depth-first without recursion, handing each piece of text to `emit`
// (pointer, length). false once the budget is exhausted or the nesting too deep.
template <typename Emit>
bool walk(const xmlDoc* doc, const xmlNode* list, Emit&& emit)
{
    std::size_t source = 0;
    for (const xmlNode* n = list; n != nullptr; n = n->next)
        source += length(n->type == XML_ENTITY_REF_NODE ? n->name : n->content) + 1;
    std::size_t budget = kExpansionFloor + kExpansionFactor * source;
    std::size_t spent = 0;
    std::unordered_set<const xmlEntity*> seen;
    // The next node to visit at each open level: the list itself, then entity lists.
    std::vector<const xmlNode*> pending(1, list);
    while (!pending.empty()) {
        const xmlNode* const n = pending.back();
        if (n == nullptr) {
            pending.pop_back();
            continue;
        }
        pending.back() = n->next;
        const xmlChar* text = nullptr;
        if (n->type == XML_TEXT_NODE || n->type == XML_CDATA_SECTION_NODE) {
            text = n->content;
        } else if (n->type == XML_ENTITY_REF_NODE) {
            const xmlEntity* const entity = xmlGetDocEntity(doc, n->name);
            if (entity == nullptr) {
                text = n->content;
            } else if (entity->children != nullptr) {
                if (seen.insert(entity).second)
                    budget += kExpansionFactor * length(entity->content);
                if (pending.size() > static_cast<std::size_t>(kMaxEntityDepth))
                    return false;
                pending.push_back(entity->children);
            }
        }
        const std::size_t size = length(text);
        spent += size + 1;
        if (spent > budget)
            return false;
        if (size > 0 && !emit(reinterpret_cast<const char*>(text), size))
            return true;
    }
    return true;
}

// The attribute as xmlGetProp (no namespace) or xmlGetNsProp finds it, or a default the DTD
// declares for it.
const xmlAttr* findAttribute(const xmlNode* element, const char* name, const char* namespaceURI = nullptr)
{
    if (element == nullptr || name == nullptr)
        return nullptr;
    return xmlHasNsProp(const_cast<xmlNode*>(element), reinterpret_cast<const xmlChar*>(name),
                        reinterpret_cast<const xmlChar*>(namespaceURI));
}

} // namespace

bool appendListText(const xmlDoc* doc, const xmlNode* list, std::string& out)
{
    // The common case, one text child, is one copy.
    if (list != nullptr && list->next == nullptr &&
        (list->type == XML_TEXT_NODE || list->type == XML_CDATA_SECTION_NODE)) {
        if (list->content != nullptr)
            out.append(reinterpret_cast<const char*>(list->content));
        return true;
    }
    const std::size_t before = out.size();
    const bool within = walk(doc, list, [&out](const char* text, std::size_t size) {
        out.append(text, size);
        return true;
    });
    if (!within)
        out.resize(before);
    return within;
}

std::string attributeText(const xmlNode* element, const char* name)
{
    return attributeText(element, name, nullptr);
}

std::string attributeText(const xmlNode* element, const char* name, const char* namespaceURI)
{
    std::string out;
    const xmlAttr* const attribute = findAttribute(element, name, namespaceURI);
    if (attribute == nullptr)
        return out;
    if (attribute->type == XML_ATTRIBUTE_DECL) {
        const xmlChar* const value = reinterpret_cast<const xmlAttribute*>(attribute)->defaultValue;
        if (value != nullptr)
            out.assign(reinterpret_cast<const char*>(value));
        return out;
    }
    appendListText(attribute->doc, attribute->children, out);
    return out;
}

bool attributeHasText(const xmlNode* element, const char* name)
{
    const xmlAttr* const attribute = findAttribute(element, name);
    if (attribute == nullptr)
        return false;
    if (attribute->type == XML_ATTRIBUTE_DECL)
        return length(reinterpret_cast<const xmlAttribute*>(attribute)->defaultValue) > 0;
    const xmlNode* const list = attribute->children;
    if (list != nullptr && list->next == nullptr &&
        (list->type == XML_TEXT_NODE || list->type == XML_CDATA_SECTION_NODE))
        return length(list->content) > 0;
    // A value past its budget reads as "", so the whole walk runs (counting, not copying).
    bool any = false;
    const bool within = walk(attribute->doc, list, [&any](const char*, std::size_t) {
        any = true;
        return true;
    });
    return within && any;
}

std::string attributeNodeText(const xmlNode* node)
{
    std::string out;
    const xmlAttr* const attribute = reinterpret_cast<const xmlAttr*>(node);
    const xmlDoc* const doc = attribute->parent != nullptr ? attribute->parent->doc : nullptr;
    appendListText(doc, attribute->children, out);
    return out;
}

} // namespace detail
} // namespace tarn
