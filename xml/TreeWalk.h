#pragma once
// Whole-subtree operations that never recurse: trees built through the API can be far deeper
// than the parser allows (it stops at 256 levels), and libxml2 2.9's copy and document-change
// functions recurse once per level, which overflows a thread's stack long before 100 000 levels.
//
// Subtrees no deeper than kRecursionSafeDepth go to libxml2's own functions unchanged (every
// tree the parser builds by default does); deeper ones take a loop over the parent links that
// gives the same result.
#include <libxml/tree.h>

namespace tarn {
namespace detail {

// The depth up to which libxml2's recursive walks are used: the parser's own default limit.
constexpr int kRecursionSafeDepth = 256;

// Whether the subtree under `node` (the node itself at depth 1; an entity reference's
// declaration is not part of it) is deeper than `limit`. Stops as soon as it is.
bool deeperThan(const xmlNode* node, int limit);

// xmlDocCopyNode(node, doc, 1) for any depth: a deep copy of `node` with attributes, namespace
// declarations and descendants, belonging to `doc` (may be null), detached. Null when libxml2
// could not allocate (nothing is left allocated then).
xmlNode* copyTree(xmlNode* node, xmlDoc* doc);

// xmlCopyDoc(doc, 1) for any depth. Null when libxml2 could not allocate.
xmlDoc* copyDocument(xmlDoc* doc);

// xmlSetTreeDoc(tree, doc) for any depth: every node of the subtree (and its attributes) is
// pointed at `doc`. Never throws, allocates nothing.
void setTreeDoc(xmlNode* tree, xmlDoc* doc);

} // namespace detail
} // namespace tarn
