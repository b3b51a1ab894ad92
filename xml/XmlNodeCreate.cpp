// XmlNode creation and insertion: new elements, moving nodes between trees, the node factories.
#include "tarnxml/XmlNode.h"

#include "Diagnostics.h"
#include "DictStrings.h"
#include "HandleMemory.h"
#include "TreeWalk.h"
#include "ValueText.h"
#include "tarn/shared.h"
#include "tarnxml/XmlHelper.h"

#include <libxml/tree.h>

#include <memory>
#include <new>

namespace tarn {

namespace {

struct NodeDeleter {
    void operator()(xmlNode* doomed) const noexcept { xmlFreeNode(doomed); }
};
typedef std::unique_ptr<xmlNode, NodeDeleter> OwnedNode;

// The line of the deprecated AddChild's log record, as the product's logs name it.
constexpr int kDeprecatedAddChildLine = 1153;

// Makes the element with the sanitised name; std::bad_alloc when libxml2 cannot.
OwnedNode newElement(xmlNs* ns, const std::string& name)
{
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(name, scratch);
    OwnedNode element(xmlNewNode(ns, reinterpret_cast<const xmlChar*>(clean.data)));
    if (!element)
        throw std::bad_alloc();
    return element;
}

// True when putting `moved` under `parent` would put a node under itself or under one of its
// own descendants. libxml2 does not check this: unlinking `moved` would cut `parent` off
// from its tree, and relinking would close a cycle, so the node and everything below it would
// be lost or walked forever. Such a move is refused before anything is taken out of its place.
bool wouldEncloseItself(const xmlNode* parent, const xmlNode* moved)
{
    for (const xmlNode* up = parent; up != nullptr; up = up->parent) {
        if (up == moved)
            return true;
    }
    return false;
}

// Node kinds that xmlAddChild and xmlAddNextSibling refuse outright; checked up front so that a
// refused move never leaves the node unlinked from its old place with nobody owning it.
bool isNamespaceDeclaration(const xmlNode* candidate) { return candidate->type == XML_NAMESPACE_DECL; }

} // namespace

// --- Making elements ---------------------------------------------------------------------------

int XmlNode::createLibXML2Node(_xmlNs* ns, const std::string& name, const std::string& value, _xmlNode** out)
{
    if (out == nullptr)
        return -3;
    OwnedNode element = newElement(ns, name);
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(value, scratch);
    if (clean.size != 0) {
        xmlNode* const textNode = xmlNewText(reinterpret_cast<const xmlChar*>(clean.data));
        if (textNode == nullptr)
            throw std::bad_alloc();
        xmlAddChild(element.get(), textNode);
    }
    *out = element.release();
    return 0;
}

int XmlNode::createLibXML2NodeWithEscData(_xmlNs* ns, const std::string& name, const std::string& value,
                                          _xmlNode** out)
{
    if (out == nullptr)
        return -3;
    OwnedNode element = newElement(ns, name);
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(value, scratch);
    // Read as escaped content: "&lt;" and "&#65;" become characters, other entity references
    // become entity-reference nodes, "" leaves the element without children.
    xmlNodeSetContent(element.get(), reinterpret_cast<const xmlChar*>(clean.data));
    *out = element.release();
    return 0;
}

// --- Appending new children ----------------------------------------------------------------------

namespace {

typedef int (*ElementMaker)(xmlNs*, const std::string&, const std::string&, xmlNode**);

int appendNewChild(xmlNode* parent, ElementMaker make, const std::string& name, const std::string& value)
{
    if (parent == nullptr)
        return -3;
    xmlNode* made = nullptr;
    make(nullptr, name, value, &made);
    OwnedNode child(made);
    // A new element never merges into a text neighbour; under a text node libxml2 coalesces
    // and frees it itself. Either way the tree has the node once xmlAddChild succeeds.
    if (xmlAddChild(parent, child.get()) == nullptr)
        return -1;
    child.release();
    return 0;
}

} // namespace

int XmlNode::AddChild(const std::string& name, const std::string& value)
{
    return appendNewChild(node, &XmlNode::createLibXML2Node, name, value);
}

int XmlNode::AddChildWithEscData(const std::string& name, const std::string& value)
{
    return appendNewChild(node, &XmlNode::createLibXML2NodeWithEscData, name, value);
}

int XmlNode::AddChild(const std::string& name, const char* value)
{
    TARN_LOG_RECORD(detail::nodeLogger(), log4cplus::TRACE_LOG_LEVEL, detail::kNodeSourcePath,
                    kDeprecatedAddChildLine, "RESULTX tarn::XmlNode::AddChild(const string&, const char*)",
                    "tarn::AddChild char* being called with name %s is deprecated!", name.c_str());
    // A null value is a missing argument, not an empty text.
    if (value == nullptr)
        return -3;
    return AddChild(name, std::string(value));
}

int XmlNode::AddChild(const std::string& name, bool value) { return AddChild(name, ToString(value)); }
int XmlNode::AddChild(const std::string& name, int value) { return AddChild(name, detail::decimalText(value)); }
int XmlNode::AddChild(const std::string& name, unsigned int value)
{
    return AddChild(name, detail::decimalText(value));
}
int XmlNode::AddChild(const std::string& name, long long value) { return AddChild(name, detail::decimalText(value)); }
int XmlNode::AddChild(const std::string& name, unsigned long long value)
{
    return AddChild(name, detail::decimalText(value));
}
int XmlNode::AddChild(const std::string& name, double value) { return AddChild(name, detail::doubleText(value)); }

// --- Moving nodes ----------------------------------------------------------------------------------

int XmlNode::AddChild(const XmlNodePtr& moved)
{
    if (node == nullptr || !moved)
        return -3;
    xmlNode* const cur = moved->getlibXML2Node();
    if (cur == nullptr)
        return -3;
    if (wouldEncloseItself(node, cur) || isNamespaceDeclaration(node) || isNamespaceDeclaration(cur))
        return -1;
    const bool ownedByMoved = moved->createdNode == cur;
    // A node leaving a read-only document takes no dictionary strings along (DictStrings.h).
    detail::releaseDictionaryStrings(cur, node->doc);
    xmlUnlinkNode(cur);
    // Into this node's document first, without recursion: libxml2 would re-point a subtree
    // from another document (or none) recursively.
    detail::setTreeDoc(cur, node->doc);
    // xmlAddChild returns the node that survives: a text node appended after a text node (or
    // under one) is merged into it and freed, and the handle must then refer to the survivor.
    xmlNode* const placed = xmlAddChild(node, cur);
    if (placed == nullptr)
        return -1; // not reached after the checks above; ownership stays as it was
    // Only the node that moved changes hands. A handle that owns one node but was pointed at
    // another (Initialize with a node) keeps owning its own node, which is still freed with it.
    if (ownedByMoved)
        moved->onNodeMoved();
    moved->Initialize(placed);
    return 0;
}

int XmlNode::AddSibling(const XmlNodePtr& moved)
{
    if (node == nullptr || !moved)
        return -3;
    xmlNode* const cur = moved->getlibXML2Node();
    if (cur == nullptr)
        return -1;
    xmlNode* const lastChild = node->last;
    if (lastChild == nullptr)
        return -1;
    // The node lands among this node's children, so the same cycle rule as AddChild applies.
    if (wouldEncloseItself(node, cur) || isNamespaceDeclaration(cur))
        return -1;
    // libxml2 takes the node out of its old place itself (and may merge a text node into a text
    // neighbour, freeing it); it refuses to place the last child after itself, which leaves
    // everything as it was.
    const bool ownedByMoved = moved->createdNode == cur;
    detail::releaseDictionaryStrings(cur, node->doc);
    if (cur != lastChild)
        detail::setTreeDoc(cur, lastChild->doc); // as in AddChild: no recursion in libxml2
    if (xmlAddNextSibling(lastChild, cur) == nullptr)
        return -1;
    if (ownedByMoved)
        moved->onNodeMoved();
    moved->Initialize(nullptr);
    return 0;
}

bool XmlNode::Initialize(const std::string& name, const std::string& value)
{
    // The new element is made first, so that a failure to allocate leaves the handle as it was.
    xmlNode* made = nullptr;
    createLibXML2Node(nullptr, name, value, &made);
    if (createdNode != nullptr) {
        xmlFreeNode(createdNode);
        createdNode = nullptr;
    }
    createdNode = made;
    node = createdNode;
    return createdNode != nullptr;
}

// --- Factories -------------------------------------------------------------------------------------

XmlNodePtr CreateXmlNode() { return detail::makeHandle<XmlNode>(); }

XmlNodePtr CreateXmlNode(const std::string& name, const std::string& value)
{
    // The handle and its shared count in one block from the thread's cache (HandleMemory.h); the
    // handle is constructed and destroyed exactly as with new and delete.
    XmlNodePtr handle = detail::makeHandle<XmlNode>();
    handle->Initialize(name, value);
    return handle;
}

namespace {

// What CreateXmlNode(name, text) makes, for a value text that this file produced itself (digits,
// a sign, a decimal point, an exponent, "true"/"false"): such text is valid ASCII that the gate
// would pass unchanged, so it goes to libxml2 directly, without a std::string in between.
XmlNodePtr createWithPlainValue(const std::string& name, const char* value)
{
    XmlNodePtr handle = detail::makeHandle<XmlNode>(); // as in CreateXmlNode(name, text)
    OwnedNode element = newElement(nullptr, name);
    if (*value != '\0') {
        xmlNode* const textNode = xmlNewText(reinterpret_cast<const xmlChar*>(value));
        if (textNode == nullptr)
            throw std::bad_alloc();
        xmlAddChild(element.get(), textNode);
    }
    handle->setCreatedNode(element.release());
    handle->Initialize(handle->getlibXML2Node());
    return handle;
}

template <typename Integer>
XmlNodePtr createWithDecimal(const std::string& name, Integer value)
{
    const fmt::format_int digits(value);
    return createWithPlainValue(name, digits.c_str());
}

} // namespace

XmlNodePtr CreateXmlNode(const std::string& name, bool value)
{
    return createWithPlainValue(name, ToString(value).c_str());
}
XmlNodePtr CreateXmlNode(const std::string& name, int value) { return createWithDecimal(name, value); }
XmlNodePtr CreateXmlNode(const std::string& name, unsigned int value) { return createWithDecimal(name, value); }
XmlNodePtr CreateXmlNode(const std::string& name, long long value) { return createWithDecimal(name, value); }
XmlNodePtr CreateXmlNode(const std::string& name, unsigned long long value)
{
    return createWithDecimal(name, value);
}
XmlNodePtr CreateXmlNode(const std::string& name, double value)
{
    return createWithPlainValue(name, detail::doubleText(value).c_str());
}

XmlNodePtr CreateXmlNode(const std::string& name, const char* value)
{
    if (value == nullptr)
        return XmlNodePtr();
    return CreateXmlNode(name, std::string(value));
}

int Create(XmlNodePtr& handle)
{
    handle = detail::makeHandle<XmlNode>();
    return 0;
}

int Create(XmlNodePtr& handle, const std::string& name, const std::string& value)
{
    Create(handle);
    if (!handle->Initialize(name, value)) {
        handle.reset();
        return -1;
    }
    return 0;
}

} // namespace tarn
