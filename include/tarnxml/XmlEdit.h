#pragma once
// Editing a tree by node: what a program that selects nodes with XPath (XPathNode::raw,
// XmlNode::getlibXML2Node) needs to change them in place, namespaces included.
//
// Nodes
//   Every function takes a libxml2 node pointer as the library's other low-level entry points do
//   (XmlNode::Initialize): an element, an attribute (an _xmlAttr cast to _xmlNode*, as XPath
//   node sets hold them), a text, CDATA section, comment or processing instruction of a tree.
//   The pointer must be alive; nothing here keeps a node or document alive.
//
// Names
//   Names are qualified names (prefix:local or local), checked like xmlValidateQName. A prefix is
//   looked up among the namespace declarations in scope at the place the name is used (the
//   element itself, or the parent for a new sibling); "xml" is always bound. An unprefixed
//   element name takes the default namespace in scope there, so that the tree means what its
//   printed text says; an unprefixed attribute name is in no namespace. A name with an unbound
//   prefix is refused, never stored as a literal "p:x".
//
// Text
//   Values go through XmlHelper::sanitize like every text that enters the library and are stored
//   as they are (no entity references are read in them).
//
// Threads and errors
//   The rules of XmlNode.h: one thread at a time per document. Result codes: 0 done, -1 refused
//   (bad name, unbound prefix, a node kind the operation does not apply to, a second root
//   element), -3 null node. std::bad_alloc can leave when libxml2 cannot allocate.
#include <string>

#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

namespace tarn {

// Where InsertElement puts the new element.
enum class XmlInsertPosition : int { Before, After, LastChild };

// A new element `qualifiedName` holding `text` (no text node for ""), placed before or after
// `node` (any child node; not beside the root element) or as the last child of the element
// `node`.
TARNXML_API int InsertElement(_xmlNode* node, XmlInsertPosition where, const std::string& qualifiedName,
                              const std::string& text);

// Renames an element or an attribute; the namespace follows the new name's prefix (see Names).
TARNXML_API int RenameNode(_xmlNode* node, const std::string& qualifiedName);

// Unlinks and frees the node with everything below it: an element other than the root, an
// attribute, a text, CDATA section, comment or processing instruction. Every pointer and handle
// to it or below it is invalid afterwards.
TARNXML_API int RemoveNode(_xmlNode* node);

// Sets (creates or replaces) the attribute `qualifiedName` of the element: "xlink:href" is the
// attribute in the namespace bound to xlink there, "href" the one in no namespace.
// Namespace declarations (xmlns, xmlns:p) are refused.
TARNXML_API int SetQualifiedAttribute(_xmlNode* element, const std::string& qualifiedName, const std::string& value);

// Removes the attribute `qualifiedName` (matched by namespace and local name, as above): 0 when
// it was there and is gone, -1 when there is no such attribute or the prefix is unbound.
TARNXML_API int RemoveQualifiedAttribute(_xmlNode* element, const std::string& qualifiedName);

// The parent of a node: the owner element of an attribute, the document node (as _xmlNode*) of
// the root element, null for the document node, a detached node or null.
TARNXML_API _xmlNode* ParentNode(_xmlNode* node) noexcept;

} // namespace tarn
