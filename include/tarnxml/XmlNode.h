#pragma once
// tarn::XmlNode: a handle on one libxml2 node, and the library's start-up and shared state.
//
// Ownership
//   A handle is in one of four states, read from its two node pointers:
//     Empty      refers to nothing (default construction, after Remove, after being moved by
//                AddSibling);
//     Referring  refers to a node that lives in some tree (lookups, iterators, GetRoot); the
//                tree owns the node, the handle owns nothing;
//     Owning     made or copied a detached node (CreateXmlNode with a name, Initialize with a
//                name, Clone/Copy); the handle frees that node and its whole subtree when it
//                is destroyed, unless an insertion (AddChild with a handle, AddSibling) has handed
//                it to a tree first;
//     Owning, pointed elsewhere: Initialize(node) on an owning handle; the owned node is still
//                freed with the handle.
//   Handles keep nothing alive: not the document of their node, nor the root of a detached
//   subtree. Once a node is freed (its document reset, reloaded or destroyed, the node or an
//   ancestor removed, the owning handle of a detached subtree destroyed) every handle on it or
//   below it must not be used again. Handles do not detect this.
//   Handles are handed out as boost::shared_ptr<XmlNode>; the class itself cannot be copied.
//   Every lookup makes a new handle; two lookups of one node see each other's changes.
//
// Threads
//   A document with its handles and iterators is used by one thread at a time; different
//   documents and detached nodes may be used on different threads at once.
//   SerializeOuterXml may run on several threads at once (on different nodes): it is the one
//   operation that takes the library's global lock. tarn::libXMLStartup must first run on one
//   thread before others use the library (the first handle or document does it).
//
// Errors
//   Operations report through result codes (0 success, -1 failure, -3 no node or missing
//   argument), empty shared pointers, empty texts and fixed defaults; they throw nothing of
//   their own. What can leave the library: std::bad_alloc (libxml2 or the C++ runtime could not
//   allocate) and boost::lock_error from the global lock (SerializeOuterXml only).
//
// Text
//   Every text is 8-bit UTF-8. Text that enters a tree (names, values, node text) first goes
//   through XmlHelper::sanitize: invalid UTF-8 is repaired (U+FFFD), control characters other
//   than tab, line feed and carriage return become "?".
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "tarnxml/tarnxml_export.h"

// libxml2's node types, forward-declared so that this header does not pull in libxml2.
struct _xmlNode;
struct _xmlNs;
struct _xmlAttr;
struct _xmlDoc;
struct _xmlXPathObject;

namespace tarn {

class XmlNode;
class XmlDocument;
class XmlNodeIterator;
class XmlAttributeIterator;
class XPathNodeIterator;

typedef boost::shared_ptr<XmlNode> XmlNodePtr;

// Prefix -> namespace URI pairs for XPath, in order. XPath 1.0 has no default namespace: an
// unprefixed name test matches only elements in no namespace, so a caller binds a document's
// default namespace to a prefix of its own choosing (e.g. "_") and writes "//_:item". An empty
// prefix is refused (the request fails as a bad expression does); a later pair for the same
// prefix replaces an earlier one.
typedef std::vector<std::pair<std::string, std::string>> XmlNamespaceBindings;

// Initialises libxml2 once per process, creates g_tempDoc and registers libXMLShutdown with
// atexit. Later calls do nothing. The constructors of XmlNode and XmlDocument call it.
TARNXML_API void libXMLStartup();
// xmlCleanupMemory and xmlCleanupParser. Runs at process exit by itself; a process that calls
// it earlier must not use the library afterwards.
TARNXML_API void libXMLShutdown();
// The scratch document that SerializeOuterXml uses (version "1.0", encoding "utf-8"); null
// until the first start-up, never freed, without children between uses.
TARNXML_API extern _xmlDoc* g_tempDoc;

class TARNXML_API XmlNode {
public:
    // An empty handle; starts the library (libXMLStartup).
    XmlNode();
    // Deletes the handle's iterators and frees the node it owns, if any. Never throws.
    ~XmlNode();
    XmlNode(const XmlNode&) = delete;
    XmlNode& operator=(const XmlNode&) = delete;

    // --- Handle and ownership -------------------------------------------------------------
    // Points the handle at `node` (may be null); frees and adopts nothing.
    void Initialize(_xmlNode* node) noexcept;
    // The referred node, or the owned one when the handle refers to nothing; may be null.
    _xmlNode* getlibXML2Node() const noexcept;
    // Frees the node the handle owns, if any, and owns `node` instead (a new detached node).
    void setCreatedNode(_xmlNode* node) noexcept;
    // Stops owning the node without freeing it: a tree has taken it over.
    void onNodeMoved() noexcept;
    // Unlinks the referred node from its tree and frees it with its subtree; the handle then
    // refers to nothing (and owns nothing if it owned that node). No node: nothing happens.
    void Remove();

    // --- Name and text ----------------------------------------------------------------------
    // Text means the content of the node's first text child; other children do not count.
    std::string GetName() const;
    bool IsName(const std::string& name) const;
    // -1 without a node. The name is stored as given (not sanitised).
    int SetName(const std::string& name);
    std::string GetData() const;
    // Replaces the first text child (removes it for "", appends one when there is none,
    // even for ""). -1 without a node.
    int SetData(const std::string& text);
    int ReplaceData(const std::string& text);
    int SetDataNumber(int value);
    int SetDataInt32(int value);
    int SetDataULONG(unsigned int value);
    int SetDataUInt32(unsigned int value);
    int SetDataInt64(long long value);
    int SetDataUInt64(unsigned long long value);
    int SetDataDouble(double value);
    int GetDataNumber() const;
    int GetDataInt32() const;
    unsigned int GetDataUInt() const;
    unsigned int GetDataULONG() const;
    unsigned int GetDataUInt32() const;
    long long GetDataInt64() const;
    unsigned long long GetDataUInt64() const;
    unsigned long long GetDataUINT64() const;
    double GetDataDouble() const;
    // TRUE_STRING, VAR_TRUE_STRING, "1", "Y" and any case of "true" are true.
    bool GetDataBool() const;

    // --- Serialisation ------------------------------------------------------------------------
    // The node as libxml2's xmlNodeDump writes it: no declaration, no added whitespace.
    std::string getOuterXml() const;
    std::string OuterXml() const;
    // What lies between the end of the start tag and the start of the end tag. A node without
    // markup (no node, a text node) gives "" and an assertion report.
    std::string InnerXml() const;
    // The node as a complete document (declaration, newline, markup, newline) through the
    // shared scratch document, under the global lock. The node is taken out of its tree: a
    // node of a loaded document is no longer part of it afterwards.
    std::string SerializeOuterXml() const;
    // libxml2's entity encoder (xmlEncodeEntitiesReentrant, no document).
    static std::string XmlEncode(const std::string& text);
    static std::string XmlEncode(const char* text);

    // --- Creation and insertion ---------------------------------------------------------------
    // Makes a detached element with the sanitised name (and a text child holding the sanitised
    // value when it is not empty) into *out. -3 when `out` is null; std::bad_alloc when libxml2
    // cannot allocate.
    static int createLibXML2Node(_xmlNs* ns, const std::string& name, const std::string& value, _xmlNode** out);
    // The same, but the value is set as escaped content (xmlNodeSetContent): "&lt;" becomes "<".
    static int createLibXML2NodeWithEscData(_xmlNs* ns, const std::string& name, const std::string& value,
                                            _xmlNode** out);

    // Append a new element as the last child: 0, -1 when libxml2 refuses, -3 without a node.
    int AddChild(const std::string& name, const std::string& value);
    int AddChildWithEscData(const std::string& name, const std::string& value);
    // Writes a TRACE record on every call. A null value is refused with -3.
    [[deprecated("use AddChild(const std::string&, const std::string&)")]]
    int AddChild(const std::string& name, const char* value);
    int AddChild(const std::string& name, bool value);
    int AddChild(const std::string& name, int value);
    int AddChild(const std::string& name, unsigned int value);
    int AddChild(const std::string& name, long long value);
    int AddChild(const std::string& name, unsigned long long value);
    int AddChild(const std::string& name, double value);

    // Moves `node`'s node (from any tree, or detached) to be this node's last child. The moved
    // handle keeps referring to it and no longer owns it. -3 when this handle or `node` has no
    // node or `node` is empty; -1 when the move would put a node under itself or one of its
    // descendants (nothing moves) or libxml2 refuses.
    int AddChild(const XmlNodePtr& node);
    // Moves `node`'s node to just after this node's LAST CHILD (not after this node). The moved
    // handle refers to nothing afterwards. -3 when this handle has no node or `node` is empty;
    // -1 when `node` has no node, this node has no children, or the move would put a node
    // under itself.
    int AddSibling(const XmlNodePtr& node);
    // Frees the owned node, if any, and makes a new detached element (name, value) owned by
    // this handle. True when it was made.
    bool Initialize(const std::string& name, const std::string& value);

    // --- Attributes -----------------------------------------------------------------------------
    // The value as xmlGetProp gives it, entity references expanded, read in time linear in its
    // size. A value may expand to at most 1 MiB + 10 times its source (its text as written plus
    // the text of each distinct entity it reaches); past that it reads as "" (and HasAttribute
    // as false). The typed getters read through it; XmlReader::value() follows the same rule.
    std::string GetAttribute(const std::string& name) const;
    // An attribute with an empty value counts as absent.
    bool HasAttribute(const std::string& name) const;
    // Creates or replaces; name and value sanitised. 0, -1 when libxml2 refuses, -3 no node.
    int SetAttribute(const std::string& name, const std::string& value);
    bool RemoveAttribute(const std::string& name);
    int SetAttributeNumber(const std::string& name, int value);
    int SetAttributeULONG(const std::string& name, unsigned int value);
    int SetAttributeInt32(const std::string& name, int value);
    int SetAttributeUInt32(const std::string& name, unsigned int value);
    int SetAttributeInt64(const std::string& name, long long value);
    int SetAttributeUInt64(const std::string& name, unsigned long long value);
    int SetAttributeDouble(const std::string& name, double value);
    // Writes the literal words "true" and "false".
    int SetAttributeBool(const std::string& name, bool value);
    int GetAttributeNumber(const std::string& name) const;
    unsigned int GetAttributeULONG(const std::string& name) const;
    unsigned long long GetAttributeUINT64(const std::string& name) const;
    int GetAttributeInt32(const std::string& name) const;
    unsigned int GetAttributeUInt32(const std::string& name) const;
    long long GetAttributeInt64(const std::string& name) const;
    unsigned long long GetAttributeUInt64(const std::string& name) const;
    double GetAttributeDouble(const std::string& name) const;
    // "1", or TRUE_STRING in any ASCII letter case; everything else is false.
    bool GetAttributeBool(const std::string& name) const;
    int GetAttributeCount() const;

    // --- Child lookup and child content ---------------------------------------------------------
    // Only direct element children count (GetLastChild excepted); names match byte for byte.
    bool ChildExists(const std::string& name) const;
    int GetChildCount() const;
    XmlNodePtr GetChild(const std::string& name) const;
    XmlNodePtr GetChild() const;
    // The last child of any kind (often a whitespace text node in indented documents).
    XmlNodePtr GetLastChild() const;
    // The named child's text; "" when there is no such child.
    std::string GetData(const std::string& name) const;
    std::string GetChildData(const std::string& name) const;
    std::string GetChildInnerXml(const std::string& name) const;
    // The named child's number; -1 when there is no such child (GetChildDataNumber gives 0).
    int GetDataNumber(const std::string& name) const;
    int GetChildDataNumber(const std::string& name) const;
    unsigned int GetChildDataUInt(const std::string& name) const;
    unsigned int GetChildDataULONG(const std::string& name) const;
    unsigned long long GetChildDataUINT64(const std::string& name) const;
    int GetChildDataInt32(const std::string& name) const;
    unsigned int GetChildDataUInt32(const std::string& name) const;
    long long GetChildDataInt64(const std::string& name) const;
    unsigned long long GetChildDataUInt64(const std::string& name) const;
    double GetChildDataDouble(const std::string& name) const;
    // By the rule of GetAttributeBool.
    bool GetChildDataBool(const std::string& name) const;
    // Removes every direct element child of that name: 0 when at least one went, else -1.
    int RemoveChild(const std::string& name);

    // --- Iteration and XPath ----------------------------------------------------------------------
    // The handle's own child iterator (made once, owned by the handle, re-aimed at the handle's
    // node on every call without rewinding; GetFirst rewinds). Never delete it.
    XmlNodeIterator* GetIterator();
    // Evaluates `xpath` with this node as the context node and returns the handle's own XPath
    // iterator, or null when the handle has no node. The concrete type is returned (rather than
    // the XmlNodeIterator base) so callers keep the one place where the result lives visible;
    // it converts implicitly to XmlNodeIterator* where a caller wants the common interface.
    // A failed or non-node-set expression keeps the previous result and position.
    XPathNodeIterator* GetIterator(const std::string& xpath);
    // The same with the prefixes of `ns` bound for the expression (the overload above binds
    // none). libxml2's error messages are captured and dropped, never printed; a failed
    // expression (bad syntax, an unbound prefix, an empty prefix in `ns`) keeps the previous
    // result and position. Typed results and error messages: tarn::XPathExpression (XPath.h).
    XPathNodeIterator* GetIterator(const std::string& xpath, const XmlNamespaceBindings& ns);
    XmlAttributeIterator* GetAttributeIterator();

    // --- Namespaces -------------------------------------------------------------------------------
    // The namespace declarations in scope at this node, nearest first: the node's own
    // declarations in document order, then its parent's that are not shadowed, and so on up.
    // On a text, comment or other non-element node: those of its parent element. Prefix ""
    // stands for the default namespace; an undeclared default (xmlns="") hides the
    // outer default namespace and is not listed itself; "xml" is not listed. Empty without a
    // node. Useful to bind a document's own prefixes for GetIterator(xpath, ns).
    XmlNamespaceBindings GetNamespacesInScope() const;
    // The node as a standalone fragment: OuterXml, but an element carries on its start tag,
    // after its own declarations, every namespace declaration in scope from its ancestors
    // (as `xmlstarlet sel -c` and XSLT's copy-of print it: all in-scope declarations, not
    // only those the subtree uses), so the text parses alone with the same namespaces.
    // Other nodes give OuterXml; "" without a node. The tree is left as it was.
    std::string FragmentXml() const;

    // --- Copies -----------------------------------------------------------------------------------
    // A deep, detached copy owned by the new handle; empty when this handle has no node.
    XmlNodePtr Clone() const;
    XmlNodePtr Copy() const;

private:
    _xmlNode* node;
    _xmlNode* createdNode;
    XmlNodeIterator* childIterator;
    XmlAttributeIterator* attributeIterator;
    XPathNodeIterator* xpathIterator;
};

// --- Node factories (detached nodes owned by the returned handle) -----------------------------
TARNXML_API XmlNodePtr CreateXmlNode();
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, const std::string& value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, bool value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, int value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, unsigned int value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, long long value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, unsigned long long value);
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, double value);
// A null value gives an empty shared pointer.
TARNXML_API XmlNodePtr CreateXmlNode(const std::string& name, const char* value);
// Stores a new empty handle in `node`; 0.
TARNXML_API int Create(XmlNodePtr& node);
// As above, then Initialize(name, value); on failure `node` is emptied and -1 returned.
TARNXML_API int Create(XmlNodePtr& node, const std::string& name, const std::string& value);

} // namespace tarn
