#pragma once
// The text of an attribute value held as a list of text and entity-reference nodes, read in time
// linear in the size of the result and bounded relative to its source.
//
// libxml2's xmlNodeListGetString (behind xmlGetProp and xmlTextReaderValue) concatenates each
// piece onto the result with xmlStrcat and copies every entity's text anew at each reference, so
// a 200 KB attribute made of 50 000 references to a 10 KB entity costs hours and gigabytes. These
// functions give the same text in one pass over the nodes, each entity's node list walked where it
// is referenced, and stop once the result would grow past its budget:
//
//   budget = kExpansionFloor + kExpansionFactor * source
//
// where source is the size of the value as written (text bytes, and each reference's name) plus
// the text of every distinct entity it reaches, each counted once. Every node visited also costs
// one byte of the budget, so nested references to empty entities cannot make work unbounded
// either, and nesting deeper than kMaxEntityDepth counts as past the budget. A value past its
// budget reads as the empty text.
#include <cstddef>
#include <string>

struct _xmlNode;
struct _xmlDoc;

namespace tarn {
namespace detail {

constexpr std::size_t kExpansionFloor = std::size_t(1) << 20; // 1 MiB
constexpr std::size_t kExpansionFactor = 10;
constexpr int kMaxEntityDepth = 40;

// Appends the text of the node list as xmlNodeListGetString(doc, list, 1) gives it (text and
// CDATA content; a reference to a known entity is that entity's text, to an unknown one its own
// content). false, with `out` as it was, when the text is past its budget.
bool appendListText(const _xmlDoc* doc, const _xmlNode* list, std::string& out);

// The value of the element's attribute `name` in no namespace, as xmlGetProp gives it (a value
// the DTD declares as default included); "" when there is none or it is past its budget.
std::string attributeText(const _xmlNode* element, const char* name);
// The same for the attribute `name` in the namespace `namespaceURI` (xmlGetNsProp).
std::string attributeText(const _xmlNode* element, const char* name, const char* namespaceURI);

// Whether attributeText would be non-empty, without copying it.
bool attributeHasText(const _xmlNode* element, const char* name);

// The value of an attribute node (xmlAttr, cast), as xmlTextReaderValue gives it.
std::string attributeNodeText(const _xmlNode* attribute);

} // namespace detail
} // namespace tarn
