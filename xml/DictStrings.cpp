// Giving a subtree strings of its own before it leaves a document parsed with a dictionary.
#include "DictStrings.h"

#include <libxml/tree.h>
#include <libxml/dict.h>

#include <new>
#include <vector>

namespace tarn {
namespace detail {

namespace {

void own(xmlDict* dict, const xmlChar*& text)
{
    if (text == nullptr || !xmlDictOwns(dict, text))
        return;
    xmlChar* const copy = xmlStrdup(text);
    if (copy == nullptr)
        throw std::bad_alloc();
    text = copy;
}

void own(xmlDict* dict, xmlChar*& text)
{
    const xmlChar* held = text;
    own(dict, held);
    text = const_cast<xmlChar*>(held);
}

} // namespace

void releaseDictionaryStrings(xmlNode* subtree, const xmlDoc* target)
{
    if (subtree == nullptr || subtree->doc == nullptr || subtree->doc->dict == nullptr)
        return;
    xmlDict* const dict = subtree->doc->dict;
    if (target != nullptr && target->dict == dict)
        return;
    // Iterative, so that a deep subtree cannot exhaust the stack. Entity references are not
    // entered: their children belong to the entity declaration.
    std::vector<xmlNode*> pending(1, subtree);
    while (!pending.empty()) {
        xmlNode* const n = pending.back();
        pending.pop_back();
        own(dict, n->name);
        own(dict, n->content);
        if (n->type == XML_ELEMENT_NODE) {
            for (xmlAttr* a = n->properties; a != nullptr; a = a->next) {
                own(dict, a->name);
                for (xmlNode* v = a->children; v != nullptr; v = v->next) {
                    own(dict, v->name);
                    own(dict, v->content);
                }
            }
        }
        if (n->type != XML_ENTITY_REF_NODE)
            for (xmlNode* c = n->children; c != nullptr; c = c->next)
                pending.push_back(c);
    }
}

} // namespace detail
} // namespace tarn
