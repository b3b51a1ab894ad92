#pragma once
// Nodes of a read-only document (XmlLoadOptions::readOnly) keep their names and short texts in
// the document's libxml2 dictionary. A node that leaves such a document for another tree (or for
// no tree) would take references into that dictionary along: the other document would hand them
// to xmlFree, and they would dangle once the first document is freed. Before such a move the
// library gives the subtree strings of its own.
struct _xmlNode;
struct _xmlDoc;

namespace tarn {
namespace detail {

// Replaces every string of `subtree` (names, contents, attribute names and values) that its
// document's dictionary owns by a copy of its own. Nothing to do (and nothing done) when the
// node's document has no dictionary or `target` shares it. Throws std::bad_alloc when a copy
// cannot be made; the strings copied so far stay valid either way.
void releaseDictionaryStrings(_xmlNode* subtree, const _xmlDoc* target);

} // namespace detail
} // namespace tarn
