// The pugixml bridge: typed reads from pugixml nodes, conversion between pugixml documents and
// the libxml2-based tree, and printing of pugixml nodes with the numeric reference clean-up.
#include "tarnxml/XmlHelper.h"

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

#include <string>
#include <string_view>

namespace XmlHelper {

namespace {

// Collects pugixml's printed output straight into a string. pugixml already buffers its output
// and hands it over in large chunks, so this avoids the stream layer and the final copy that
// std::ostringstream::str() would cost.
class StringSink final : public pugi::xml_writer {
public:
    explicit StringSink(std::string& out) : out_(out) {}
    void write(const void* data, size_t size) override { out_.append(static_cast<const char*>(data), size); }

private:
    std::string& out_;
};

// A first guess at the printed size, so that small documents print without regrowing.
constexpr size_t kInitialReserve = 1024;

unsigned int printFlags(bool formatted)
{
    return formatted ? pugi::format_indent : pugi::format_raw;
}

const char* printIndent(bool formatted, const char* indent)
{
    return formatted && indent ? indent : "";
}

// The printed text after the numeric reference clean-up. The clean-up reads its input up to the
// first zero byte and can change only text that holds "&#"; text with neither is handed back as
// it is, without the copy.
std::string cleanPrinted(std::string&& printed)
{
    const std::string_view view(printed);
    if (view.find("&#") == std::string_view::npos && view.find('\0') == std::string_view::npos)
        return std::move(printed);
    return replaceInvalidNumericEncodings(printed);
}

template <typename T, typename Read>
int readText(T& value, const pugi::xml_node& node, const char* name, Read read)
{
    const pugi::xml_node child = getFromNode(node, name);
    if (!child)
        return -1;
    const pugi::xml_text text = child.text();
    if (!text)
        return -1;
    value = read(text);
    return 0;
}

} // namespace

pugi::xml_node getFromNode(const pugi::xml_node& node, const char* name)
{
    if (!name)
        return node;
    return node.child(name);
}

int fromXml(bool& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_bool(false); });
}

int fromXml(double& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_double(0.0); });
}

int fromXml(int& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_int(0); });
}

int fromXml(unsigned int& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_uint(0); });
}

int fromXml(long long& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_llong(0); });
}

int fromXml(unsigned long long& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_ullong(0); });
}

int fromXml(std::string& value, const pugi::xml_node& node, const char* name)
{
    return readText(value, node, name, [](const pugi::xml_text& t) { return t.as_string(""); });
}

bool convert(const tarn::XmlNodePtr& node, pugi::xml_document& document)
{
    if (!node)
        return false;
    const std::string text = node->OuterXml();
    if (text.empty())
        return false;
    return static_cast<bool>(document.load_string(text.c_str(), pugi::parse_full));
}

tarn::XmlNodePtr convert(pugi::xml_node node)
{
    if (!node)
        return tarn::XmlNodePtr();
    const std::string text = outerXml(node, false, nullptr);
    const tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(text);
    if (!document)
        return tarn::XmlNodePtr();
    const tarn::XmlNodePtr root = document->GetRoot();
    if (!root)
        return tarn::XmlNodePtr();
    return root->Clone();
}

std::string innerXml(const pugi::xml_node& node, bool formatted, const char* indent)
{
    std::string printed;
    if (!node)
        return printed;
    printed.reserve(kInitialReserve);
    StringSink sink(printed);
    const char* unit = printIndent(formatted, indent);
    const unsigned int flags = printFlags(formatted);
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
        child.print(sink, unit, flags, pugi::encoding_auto, 0);
    return cleanPrinted(std::move(printed));
}

std::string outerXml(const pugi::xml_node& node, bool formatted, const char* indent)
{
    std::string printed;
    if (!node)
        return printed;
    printed.reserve(kInitialReserve);
    StringSink sink(printed);
    node.print(sink, printIndent(formatted, indent), printFlags(formatted), pugi::encoding_auto, 0);
    return cleanPrinted(std::move(printed));
}

} // namespace XmlHelper
