// The typed value bridge over node handles: values of the basic types stored as the text of a
// new named child element, and read back from a named child.
#include "tarnxml/XmlHelper.h"

#include "Diagnostics.h"
#include "tarn/shared.h"

#include <string>

// Callers are expected to pass a live parent or node handle and non-null names and values. The
// checks below are not part of the calling contract; they keep a broken call from crashing and
// give it the operation's own failure result instead: an empty handle from getFromNode and
// AddChild, -2 from toXml (no child could be made, reported like any failed creation), -1 from
// fromXml (nothing to read, output untouched).

namespace XmlHelper {

namespace {

// Appends an empty child element `name` to `parent`, or reports and returns an empty handle.
tarn::XmlNodePtr newValueChild(tarn::XmlNodePtr& parent, const char* name)
{
    tarn::XmlNodePtr child = AddChild(parent, name, "");
    if (!child)
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
    return child;
}

// toXml for the value types stored through one of the child's typed setters.
template <typename Value, typename Setter>
int storeValue(Value value, tarn::XmlNodePtr& parent, const char* name, Setter setter)
{
    tarn::XmlNodePtr child = newValueChild(parent, name);
    if (!child)
        return -2;
    return ((*child).*setter)(value);
}

// fromXml: the child named `name` (or the node itself) when it has non-empty text.
tarn::XmlNodePtr childWithText(tarn::XmlNodePtr& node, const char* name, std::string& text)
{
    tarn::XmlNodePtr child = getFromNode(node, name);
    if (!child)
        return child;
    text = child->GetData();
    if (text.empty())
        return tarn::XmlNodePtr();
    return child;
}

template <typename Value, typename Getter>
int readValue(Value& value, tarn::XmlNodePtr& node, const char* name, Getter getter)
{
    std::string text;
    tarn::XmlNodePtr child = childWithText(node, name, text);
    if (!child)
        return -1;
    value = ((*child).*getter)();
    return 0;
}

} // namespace

tarn::XmlNodePtr getFromNode(tarn::XmlNodePtr& node, const char* name)
{
    if (!name)
        return node;
    if (!node)
        return tarn::XmlNodePtr();
    return node->GetChild(std::string(name));
}

tarn::XmlNodePtr AddChild(tarn::XmlNodePtr& parent, const std::string& name, const std::string& value)
{
    if (!parent)
        return tarn::XmlNodePtr();
    if (parent->AddChild(name, value) < 0)
        return tarn::XmlNodePtr();
    tarn::XmlNodePtr child = parent->GetLastChild();
    if (!child) // the element just appended should be the last child
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
    return child;
}

tarn::XmlNodePtr AddChild(tarn::XmlNodePtr& parent, const char* name, const char* value)
{
    if (!name || !value)
        return tarn::XmlNodePtr();
    const std::string valueText(value);
    const std::string nameText(name);
    return AddChild(parent, nameText, valueText);
}

int toXml(int value, tarn::XmlNodePtr& parent, const char* name)
{
    return storeValue(value, parent, name, &tarn::XmlNode::SetDataInt32);
}

int toXml(unsigned int value, tarn::XmlNodePtr& parent, const char* name)
{
    return storeValue(value, parent, name, &tarn::XmlNode::SetDataUInt32);
}

int toXml(long long value, tarn::XmlNodePtr& parent, const char* name)
{
    return storeValue(value, parent, name, &tarn::XmlNode::SetDataInt64);
}

int toXml(unsigned long long value, tarn::XmlNodePtr& parent, const char* name)
{
    return storeValue(value, parent, name, &tarn::XmlNode::SetDataUInt64);
}

int toXml(double value, tarn::XmlNodePtr& parent, const char* name)
{
    return storeValue(value, parent, name, &tarn::XmlNode::SetDataDouble);
}

int toXml(bool value, tarn::XmlNodePtr& parent, const char* name)
{
    tarn::XmlNodePtr child = newValueChild(parent, name);
    if (!child)
        return -2;
    return child->SetData(tarn::ToString(value));
}

int toXml(const char* value, tarn::XmlNodePtr& parent, const char* name)
{
    // A null value would leave nothing to store: no child is made for it, and the call fails as
    // a failed creation does.
    if (!value) {
        tarn::detail::assertionReport(tarn::detail::kHelperSourcePath, __LINE__);
        return -2;
    }
    tarn::XmlNodePtr child = newValueChild(parent, name);
    if (!child)
        return -2;
    return child->SetData(std::string(value));
}

int toXml(const std::string& value, tarn::XmlNodePtr& parent, const char* name)
{
    // Stored as a zero-terminated string: a zero byte inside the text ends it.
    return toXml(value.c_str(), parent, name);
}

int fromXml(int& value, tarn::XmlNodePtr& node, const char* name)
{
    return readValue(value, node, name, &tarn::XmlNode::GetDataInt32);
}

int fromXml(unsigned int& value, tarn::XmlNodePtr& node, const char* name)
{
    return readValue(value, node, name, &tarn::XmlNode::GetDataUInt32);
}

int fromXml(long long& value, tarn::XmlNodePtr& node, const char* name)
{
    return readValue(value, node, name, &tarn::XmlNode::GetDataInt64);
}

int fromXml(unsigned long long& value, tarn::XmlNodePtr& node, const char* name)
{
    return readValue(value, node, name, &tarn::XmlNode::GetDataUInt64);
}

int fromXml(double& value, tarn::XmlNodePtr& node, const char* name)
{
    return readValue(value, node, name, &tarn::XmlNode::GetDataDouble);
}

int fromXml(bool& value, tarn::XmlNodePtr& node, const char* name)
{
    std::string text;
    if (!childWithText(node, name, text))
        return -1;
    // Only the exact false word reads as false; any other non-empty text is true.
    value = text != FALSE_STRING;
    return 0;
}

int fromXml(std::string& value, tarn::XmlNodePtr& node, const char* name)
{
    std::string text;
    if (!childWithText(node, name, text))
        return -1;
    value = text;
    return 0;
}

} // namespace XmlHelper
