// XmlNode: finding direct children by name or position, reading a named child's content, and
// removing named children.
//
// Every lookup that finds a node hands out a new handle that refers to it without owning it, so
// dropping the handle frees nothing and two lookups of one child see each other's changes.
#include "tarnxml/XmlNode.h"

#include "HandleMemory.h"
#include "ValueText.h"
#include "tarn/shared.h"

#include <libxml/tree.h>

#include <cstring>

namespace tarn {

namespace {

// The first child in the tree sense. An entity reference keeps its entity declaration in the
// children link, which is not part of the element tree and must not be searched or handed out.
xmlNode* firstChildOf(const xmlNode* parent)
{
    if (!parent || parent->type == XML_ENTITY_REF_NODE)
        return nullptr;
    return parent->children;
}

xmlNode* lastChildOf(const xmlNode* parent)
{
    if (!parent || parent->type == XML_ENTITY_REF_NODE)
        return nullptr;
    return parent->last;
}

xmlNode* firstElement(xmlNode* child)
{
    while (child && child->type != XML_ELEMENT_NODE)
        child = child->next;
    return child;
}

// Whether `child` is an element whose stored name is `wanted`, byte for byte.
bool isElementNamed(const xmlNode* child, const char* wanted)
{
    return child->type == XML_ELEMENT_NODE && child->name
        && std::strcmp(reinterpret_cast<const char*>(child->name), wanted) == 0;
}

// libxml2's names end at their first zero byte, so a name with a zero byte inside matches nothing.
bool usableName(const std::string& name) { return std::strlen(name.c_str()) == name.size(); }

// The first element child whose stored name equals `name` byte for byte.
xmlNode* findElement(const xmlNode* parent, const std::string& name)
{
    if (!usableName(name))
        return nullptr;
    for (xmlNode* child = firstChildOf(parent); child; child = child->next) {
        if (isElementNamed(child, name.c_str()))
            return child;
    }
    return nullptr;
}

// The named child's text as the child's own GetData() reads it (its first text node; "" when it
// has none), or null when there is no such child. The content getters below read it in place:
// a handle made only to read a child's text and dropped again is nothing a caller could see.
const char* childText(const xmlNode* parent, const std::string& name)
{
    const xmlNode* const child = findElement(parent, name);
    if (!child)
        return nullptr;
    for (const xmlNode* text = child->children; text; text = text->next) {
        if (text->type == XML_TEXT_NODE)
            return text->content ? reinterpret_cast<const char*>(text->content) : "";
    }
    return "";
}

// A new handle that refers to `child` and owns nothing.
XmlNodePtr referringHandle(xmlNode* child)
{
    XmlNodePtr handle = detail::makeHandle<XmlNode>();
    handle->Initialize(child);
    return handle;
}

} // namespace

bool XmlNode::ChildExists(const std::string& name) const
{
    return findElement(node, name) != nullptr;
}

int XmlNode::GetChildCount() const
{
    int count = 0;
    for (const xmlNode* child = firstChildOf(node); child; child = child->next) {
        if (child->type == XML_ELEMENT_NODE)
            ++count;
    }
    return count;
}

XmlNodePtr XmlNode::GetChild(const std::string& name) const
{
    xmlNode* child = findElement(node, name);
    return child ? referringHandle(child) : XmlNodePtr();
}

XmlNodePtr XmlNode::GetChild() const
{
    xmlNode* child = firstElement(firstChildOf(node));
    return child ? referringHandle(child) : XmlNodePtr();
}

XmlNodePtr XmlNode::GetLastChild() const
{
    // Any kind of node: on indented input this is usually the blank text after the last element.
    xmlNode* child = lastChildOf(node);
    return child ? referringHandle(child) : XmlNodePtr();
}

std::string XmlNode::GetData(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? std::string(text) : EMPTY_STRING;
}

std::string XmlNode::GetChildData(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? std::string(text) : EMPTY_STRING;
}

std::string XmlNode::GetChildInnerXml(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->InnerXml() : EMPTY_STRING;
}

// The missing-child values below differ on purpose: GetDataNumber with a name gives -1, the
// GetChildData* family gives 0 (0.0, false). No conversion runs for a missing child. Each value
// is the conversion the child's own getter applies to its text (GetDataNumber and GetDataUInt32
// for the first three).

int XmlNode::GetDataNumber(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToInt32(text) : -1;
}

int XmlNode::GetChildDataNumber(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToInt32(text) : 0;
}

unsigned int XmlNode::GetChildDataUInt(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToUInt32(text) : 0u;
}

unsigned int XmlNode::GetChildDataULONG(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToUInt32(text) : 0u;
}

unsigned long long XmlNode::GetChildDataUINT64(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToUINT64(text) : 0ull;
}

int XmlNode::GetChildDataInt32(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToInt32(text) : 0;
}

unsigned int XmlNode::GetChildDataUInt32(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToUInt32(text) : 0u;
}

long long XmlNode::GetChildDataInt64(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToInt64(text) : 0ll;
}

unsigned long long XmlNode::GetChildDataUInt64(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? ToUInt64(text) : 0ull;
}

double XmlNode::GetChildDataDouble(const std::string& name) const
{
    const char* const text = childText(node, name);
    return text ? detail::classicDouble(text) : 0.0;
}

bool XmlNode::GetChildDataBool(const std::string& name) const
{
    // The attribute rule ("1" or TRUE_STRING in any letter case), not the wider node text rule.
    const char* const text = childText(node, name);
    return text ? detail::attributeBool(text) : false;
}

int XmlNode::RemoveChild(const std::string& name)
{
    // One pass: each matching element child is unlinked and freed with its subtree (what Remove
    // does through a handle), the walk going on from the sibling after it. Starting again at the
    // first child after each removal made interleaved children quadratic.
    if (!usableName(name))
        return -1;
    int result = -1;
    for (xmlNode* child = firstChildOf(node); child;) {
        xmlNode* const next = child->next;
        if (isElementNamed(child, name.c_str())) {
            xmlUnlinkNode(child);
            xmlFreeNode(child);
            result = 0;
        }
        child = next;
    }
    return result;
}

} // namespace tarn
