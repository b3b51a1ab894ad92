// XmlNode: finding direct children by name or position, reading a named child's content, and
// removing named children.
//
// Every lookup that finds a node hands out a new handle that refers to it without owning it, so
// dropping the handle frees nothing and two lookups of one child see each other's changes.
#include "tarnxml/XmlNode.h"

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

// A new handle that refers to `child` and owns nothing.
XmlNodePtr referringHandle(xmlNode* child)
{
    XmlNodePtr handle(new XmlNode);
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
    const XmlNodePtr child = GetChild(name);
    return child ? child->GetData() : EMPTY_STRING;
}

std::string XmlNode::GetChildData(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->GetData() : EMPTY_STRING;
}

std::string XmlNode::GetChildInnerXml(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->InnerXml() : EMPTY_STRING;
}

// The missing-child values below differ on purpose: GetDataNumber with a name gives -1, the
// GetChildData* family gives 0 (0.0, false). No conversion runs for a missing child.

int XmlNode::GetDataNumber(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->GetDataNumber() : -1;
}

int XmlNode::GetChildDataNumber(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->GetDataNumber() : 0;
}

unsigned int XmlNode::GetChildDataUInt(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? child->GetDataUInt32() : 0u;
}

unsigned int XmlNode::GetChildDataULONG(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToUInt32(child->GetData().c_str()) : 0u;
}

unsigned long long XmlNode::GetChildDataUINT64(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToUINT64(child->GetData().c_str()) : 0ull;
}

int XmlNode::GetChildDataInt32(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToInt32(child->GetData().c_str()) : 0;
}

unsigned int XmlNode::GetChildDataUInt32(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToUInt32(child->GetData().c_str()) : 0u;
}

long long XmlNode::GetChildDataInt64(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToInt64(child->GetData().c_str()) : 0ll;
}

unsigned long long XmlNode::GetChildDataUInt64(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? ToUInt64(child->GetData().c_str()) : 0ull;
}

double XmlNode::GetChildDataDouble(const std::string& name) const
{
    const XmlNodePtr child = GetChild(name);
    return child ? detail::classicDouble(child->GetData().c_str()) : 0.0;
}

bool XmlNode::GetChildDataBool(const std::string& name) const
{
    // The attribute rule ("1" or TRUE_STRING in any letter case), not the wider node text rule.
    const XmlNodePtr child = GetChild(name);
    return child ? detail::attributeBool(child->GetData()) : false;
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
