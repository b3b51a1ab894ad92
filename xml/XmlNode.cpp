// XmlNode: the handle's ownership of libxml2 nodes, names and text content.
#include "tarnxml/XmlNode.h"

#include "ValueText.h"
#include "tarn/shared.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"

#include <libxml/tree.h>

#include <new>

namespace tarn {

namespace {

// The first child of type XML_TEXT_NODE; CDATA sections, entity references, comments and
// elements are skipped.
xmlNode* firstTextChild(const xmlNode* parent)
{
    for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_TEXT_NODE)
            return child;
    }
    return nullptr;
}

const char* text(const xmlChar* value) { return reinterpret_cast<const char*>(value); }

} // namespace

// --- Handle and ownership -----------------------------------------------------------------------

XmlNode::XmlNode()
    : node(nullptr), createdNode(nullptr), childIterator(nullptr), attributeIterator(nullptr),
      xpathIterator(nullptr)
{
    libXMLStartup();
}

XmlNode::~XmlNode()
{
    delete childIterator;
    childIterator = nullptr;
    delete attributeIterator;
    attributeIterator = nullptr;
    delete xpathIterator;
    xpathIterator = nullptr;
    if (createdNode != nullptr) {
        xmlFreeNode(createdNode);
        createdNode = nullptr;
    }
}

void XmlNode::Initialize(_xmlNode* newNode) noexcept { node = newNode; }

_xmlNode* XmlNode::getlibXML2Node() const noexcept { return node != nullptr ? node : createdNode; }

void XmlNode::setCreatedNode(_xmlNode* newNode) noexcept
{
    if (createdNode != nullptr)
        xmlFreeNode(createdNode);
    createdNode = newNode;
}

void XmlNode::onNodeMoved() noexcept { createdNode = nullptr; }

void XmlNode::Remove()
{
    if (node == nullptr)
        return;
    xmlNode* const doomed = node;
    xmlUnlinkNode(doomed);
    // An owned node is freed here, once; the destructor must not free it again.
    if (doomed == createdNode)
        createdNode = nullptr;
    xmlFreeNode(doomed);
    node = nullptr;
}

// --- Name ----------------------------------------------------------------------------------------

std::string XmlNode::GetName() const
{
    if (node == nullptr || node->name == nullptr)
        return EMPTY_STRING;
    return text(node->name);
}

bool XmlNode::IsName(const std::string& name) const
{
    if (node == nullptr || node->name == nullptr)
        return name.empty();
    return name == text(node->name);
}

int XmlNode::SetName(const std::string& name)
{
    if (node == nullptr)
        return -1;
    xmlNodeSetName(node, reinterpret_cast<const xmlChar*>(name.c_str()));
    return 0;
}

// --- Text ----------------------------------------------------------------------------------------

std::string XmlNode::GetData() const
{
    if (node == nullptr)
        return std::string();
    const xmlNode* const child = firstTextChild(node);
    if (child == nullptr || child->content == nullptr)
        return std::string();
    return text(child->content);
}

int XmlNode::SetData(const std::string& value)
{
    if (node == nullptr)
        return -1;
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(value, scratch);
    const xmlChar* const content = reinterpret_cast<const xmlChar*>(clean.data);

    xmlNode* const old = firstTextChild(node);
    if (old == nullptr) {
        // No text yet: append one, even an empty one, so that the element keeps an open and a
        // close tag.
        xmlNode* const fresh = xmlNewText(content);
        if (fresh == nullptr)
            throw std::bad_alloc();
        // A text node appended after a trailing text node would merge into it; there is none
        // here (old == nullptr), so the fresh node stays a node of its own.
        xmlAddChild(node, fresh);
        return 0;
    }
    if (clean.size != 0) {
        xmlNode* const fresh = xmlNewText(content);
        if (fresh == nullptr)
            throw std::bad_alloc();
        xmlReplaceNode(old, fresh);
    } else {
        xmlUnlinkNode(old);
    }
    xmlFreeNode(old);
    return 0;
}

int XmlNode::ReplaceData(const std::string& value) { return SetData(value); }

int XmlNode::SetDataNumber(int value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataInt32(int value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataULONG(unsigned int value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataUInt32(unsigned int value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataInt64(long long value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataUInt64(unsigned long long value) { return SetData(detail::decimalText(value)); }
int XmlNode::SetDataDouble(double value) { return SetData(detail::doubleText(value)); }

int XmlNode::GetDataNumber() const { return ToInt32(GetData().c_str()); }
int XmlNode::GetDataInt32() const { return ToInt32(GetData().c_str()); }
unsigned int XmlNode::GetDataUInt() const { return ToUInt32(GetData().c_str()); }
unsigned int XmlNode::GetDataULONG() const { return ToUInt32(GetData().c_str()); }
unsigned int XmlNode::GetDataUInt32() const { return ToUInt32(GetData().c_str()); }
long long XmlNode::GetDataInt64() const { return ToInt64(GetData().c_str()); }
unsigned long long XmlNode::GetDataUInt64() const { return ToUInt64(GetData().c_str()); }
unsigned long long XmlNode::GetDataUINT64() const { return ToUINT64(GetData().c_str()); }
double XmlNode::GetDataDouble() const { return detail::classicDouble(GetData().c_str()); }
bool XmlNode::GetDataBool() const { return detail::nodeTextBool(GetData()); }

} // namespace tarn
