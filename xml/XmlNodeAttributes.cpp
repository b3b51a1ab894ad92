// XmlNode: reading, writing, testing, removing and counting the attributes of an element.
// Every call goes straight to libxml2's property functions; nothing is cached.
#include "tarnxml/XmlNode.h"

#include "EntityText.h"
#include "ValueText.h"
#include "tarn/shared.h"
#include "tarnxml/XmlHelper.h"

#include <libxml/tree.h>
#include <libxml/xmlmemory.h>

#include <memory>

namespace tarn {

namespace {

const xmlChar* xmlText(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

} // namespace

std::string XmlNode::GetAttribute(const std::string& name) const
{
    if (!node)
        return std::string();
    // The name is looked up as given: reads never repair it. The value is xmlGetProp's, read in
    // linear time through entity references (EntityText.h).
    return detail::attributeText(node, name.c_str());
}

bool XmlNode::HasAttribute(const std::string& name) const
{
    // An attribute that is present with an empty value reads as absent; nothing is copied.
    return node != nullptr && detail::attributeHasText(node, name.c_str());
}

int XmlNode::SetAttribute(const std::string& name, const std::string& value)
{
    if (!node)
        return -3;
    std::string valueScratch;
    const XmlHelper::TextView cleanValue = XmlHelper::sanitize(value, valueScratch);
    std::string nameScratch;
    const XmlHelper::TextView cleanName = XmlHelper::sanitize(name, nameScratch);
    // Both views end in a zero byte (they refer to a std::string or to the constant empty text).
    return xmlSetProp(node, xmlText(cleanName.data), xmlText(cleanValue.data)) ? 0 : -1;
}

bool XmlNode::RemoveAttribute(const std::string& name)
{
    if (!node)
        return false;
    std::string nameScratch;
    const XmlHelper::TextView cleanName = XmlHelper::sanitize(name, nameScratch);
    xmlAttr* attribute = xmlHasProp(node, xmlText(cleanName.data));
    if (!attribute)
        return false;
    // xmlHasProp also reports a default value declared in the document's DTD. That entry is an
    // attribute declaration, not an attribute of this element, and there is nothing to remove:
    // handing it to xmlRemoveProp would make libxml2 walk the DTD as if it were an element.
    if (attribute->type != XML_ATTRIBUTE_NODE)
        return false;
    return xmlRemoveProp(attribute) == 0;
}

int XmlNode::SetAttributeNumber(const std::string& name, int value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeULONG(const std::string& name, unsigned int value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeInt32(const std::string& name, int value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeUInt32(const std::string& name, unsigned int value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeInt64(const std::string& name, long long value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeUInt64(const std::string& name, unsigned long long value)
{
    return SetAttribute(name, detail::decimalText(value));
}

int XmlNode::SetAttributeDouble(const std::string& name, double value)
{
    return SetAttribute(name, detail::doubleText(value));
}

int XmlNode::SetAttributeBool(const std::string& name, bool value)
{
    // Attributes carry the literal words, whatever TRUE_STRING and FALSE_STRING hold.
    static const std::string trueWord = "true";
    static const std::string falseWord = "false";
    return SetAttribute(name, value ? trueWord : falseWord);
}

int XmlNode::GetAttributeNumber(const std::string& name) const
{
    return ToInt32(GetAttribute(name).c_str());
}

unsigned int XmlNode::GetAttributeULONG(const std::string& name) const
{
    return ToUInt32(GetAttribute(name).c_str());
}

unsigned long long XmlNode::GetAttributeUINT64(const std::string& name) const
{
    return ToUINT64(GetAttribute(name).c_str());
}

int XmlNode::GetAttributeInt32(const std::string& name) const
{
    return ToInt32(GetAttribute(name).c_str());
}

unsigned int XmlNode::GetAttributeUInt32(const std::string& name) const
{
    return ToUInt32(GetAttribute(name).c_str());
}

long long XmlNode::GetAttributeInt64(const std::string& name) const
{
    return ToInt64(GetAttribute(name).c_str());
}

unsigned long long XmlNode::GetAttributeUInt64(const std::string& name) const
{
    return ToUInt64(GetAttribute(name).c_str());
}

double XmlNode::GetAttributeDouble(const std::string& name) const
{
    return detail::classicDouble(GetAttribute(name).c_str());
}

bool XmlNode::GetAttributeBool(const std::string& name) const
{
    return detail::attributeBool(GetAttribute(name));
}

int XmlNode::GetAttributeCount() const
{
    // Only elements carry an attribute list; other node kinds keep other data in that place.
    if (!node || node->type != XML_ELEMENT_NODE)
        return 0;
    int count = 0;
    for (const xmlAttr* attribute = node->properties; attribute; attribute = attribute->next) {
        if (attribute->type == XML_ATTRIBUTE_NODE)
            ++count;
    }
    return count;
}

} // namespace tarn
