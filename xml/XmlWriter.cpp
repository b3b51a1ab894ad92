// tarn::XmlWriter, core: declaration, elements, attributes, text, settings and printing.
//
// Every call adds to the pugixml document; openNodes is the stack of open nodes and its back is
// where attributes and text go. Nodes that pugixml refuses come back as empty handles, and
// writes through an empty handle do nothing, which is what keeps misuse silent.
#include "tarnxml/XmlWriter.h"

#include <cstring>

#include "tarnxml/XmlHelper.h"

#include "Utf8Validate.h"

#include <limits>

namespace tarn {

namespace {

const char* booleanWord(bool value, bool numeric)
{
    if (numeric)
        return value ? "1" : "0";
    return value ? "True" : "False";
}

// The gate's answer for valid text, asked of the validator directly (XmlHelper::isValidUTF8
// adds an exported call and a size check per value); everything else takes XmlHelper::sanitize,
// so what is stored is exactly what sanitize gives.
bool passesGate(const char* data, std::size_t size)
{
    return size != 0 && size <= std::numeric_limits<unsigned int>::max() &&
           detail::utf8Valid(reinterpret_cast<const unsigned char*>(data), size);
}

// Hands `store` the value as the gate lets it in: valid text as it is, anything else as
// XmlHelper::sanitize gives it (the scratch string it may need is made only then). A
// zero-terminated value is read up to its zero byte.
template <typename Store>
void storeClean(const char* value, Store&& store)
{
    const std::size_t size = std::strlen(value);
    if (passesGate(value, size)) {
        store(value, size);
        return;
    }
    std::string scratch;
    const XmlHelper::TextView text = XmlHelper::sanitize(value, scratch);
    store(text.data, text.size);
}

// A std::string value is read up to its first zero byte, as its c_str() would be. The gate
// refuses a zero byte, so a string that passes it whole has none and is taken as it is, without
// a second pass to find its length; only the rest goes the zero-terminated way.
template <typename Store>
void storeClean(const std::string& value, Store&& store)
{
    if (passesGate(value.data(), value.size())) {
        store(value.data(), value.size());
        return;
    }
    storeClean(value.c_str(), store);
}
} // namespace

XmlWriter::XmlWriter() : formatted(false)
{
    reset();
}

XmlWriter::~XmlWriter()
{
    reset();
}

pugi::xml_node XmlWriter::target() const
{
    if (openNodes.empty())
        return document;
    return openNodes.back();
}

void XmlWriter::startDocument(const char* version, const char* encoding, const char* standalone)
{
    pugi::xml_node declaration = document.prepend_child(pugi::node_declaration);
    declaration.append_attribute("version") = version ? version : "1.0";
    declaration.append_attribute("encoding") = encoding ? encoding : "UTF-8";
    if (standalone && std::strcmp(standalone, "no") != 0)
        declaration.append_attribute("standalone") = standalone;
}

void XmlWriter::startDocument(const std::string& version)
{
    pugi::xml_node declaration = document.prepend_child(pugi::node_declaration);
    declaration.append_attribute("version") = version.c_str();
}

void XmlWriter::startDocument(const std::string& version, const std::string& encoding)
{
    pugi::xml_node declaration = document.prepend_child(pugi::node_declaration);
    declaration.append_attribute("version") = version.c_str();
    declaration.append_attribute("encoding") = encoding.c_str();
}

void XmlWriter::startDocument(const std::string& version, const std::string& encoding, const std::string& standalone)
{
    pugi::xml_node declaration = document.prepend_child(pugi::node_declaration);
    declaration.append_attribute("version") = version.c_str();
    declaration.append_attribute("encoding") = encoding.c_str();
    declaration.append_attribute("standalone") = standalone.c_str();
}

void XmlWriter::endDocument()
{
    openNodes.clear();
}

void XmlWriter::startElement(const char* name)
{
    if (!name)
        return;
    // Pushed even when empty (the target cannot take children): it then swallows what follows.
    openNodes.push_back(target().append_child(name));
}

void XmlWriter::startElement(const std::string& name)
{
    startElement(name.c_str());
}

void XmlWriter::endElement()
{
    if (!openNodes.empty() && openNodes.back().type() == pugi::node_element)
        openNodes.pop_back();
}

void XmlWriter::writeElement(const char* name, const char* value)
{
    if (!name)
        return;
    pugi::xml_node element = target().append_child(name);
    if (!value)
        return;
    storeClean(value, [&element](const char* data, std::size_t size) { element.text().set(data, size); });
}

void XmlWriter::writeElement(const char* name, const std::string& value)
{
    if (!name)
        return;
    pugi::xml_node element = target().append_child(name);
    storeClean(value, [&element](const char* data, std::size_t size) { element.text().set(data, size); });
}

void XmlWriter::writeElement(const std::string& name, const char* value)
{
    writeElement(name.c_str(), value);
}

void XmlWriter::writeElement(const std::string& name, const std::string& value)
{
    writeElement(name.c_str(), value);
}

void XmlWriter::writeElement(const char* name, bool value, bool numeric)
{
    writeElement(name, booleanWord(value, numeric));
}

void XmlWriter::writeElement(const std::string& name, bool value, bool numeric)
{
    writeElement(name.c_str(), booleanWord(value, numeric));
}

void XmlWriter::writeAttribute(const char* name, const char* value)
{
    if (!name || openNodes.empty())
        return;
    // Appended without looking for an existing attribute of that name; pugixml refuses it (empty
    // handle) when the current node is not an element.
    pugi::xml_attribute attribute = openNodes.back().append_attribute(name);
    if (!value)
        return;
    storeClean(value, [&attribute](const char* data, std::size_t size) { attribute.set_value(data, size); });
}

void XmlWriter::writeAttribute(const char* name, const std::string& value)
{
    if (!name || openNodes.empty())
        return;
    pugi::xml_attribute attribute = openNodes.back().append_attribute(name);
    storeClean(value, [&attribute](const char* data, std::size_t size) { attribute.set_value(data, size); });
}

void XmlWriter::writeAttribute(const std::string& name, const char* value)
{
    writeAttribute(name.c_str(), value);
}

void XmlWriter::writeAttribute(const std::string& name, const std::string& value)
{
    writeAttribute(name.c_str(), value);
}

void XmlWriter::writeAttribute(const char* name, bool value, bool numeric)
{
    writeAttribute(name, booleanWord(value, numeric));
}

void XmlWriter::writeAttribute(const std::string& name, bool value, bool numeric)
{
    writeAttribute(name.c_str(), booleanWord(value, numeric));
}

void XmlWriter::writeText(const char* text)
{
    if (!text || openNodes.empty())
        return;
    // An element's first PCDATA/CDATA child (made when missing), a CDATA section's own value;
    // comments and empty handles take nothing.
    pugi::xml_node& current = openNodes.back();
    storeClean(text, [&current](const char* data, std::size_t size) { current.text().set(data, size); });
}

void XmlWriter::writeText(const std::string& text)
{
    if (openNodes.empty())
        return;
    pugi::xml_node& current = openNodes.back();
    storeClean(text, [&current](const char* data, std::size_t size) { current.text().set(data, size); });
}

void XmlWriter::writeText(bool value, bool numeric)
{
    writeText(booleanWord(value, numeric));
}

void XmlWriter::setFormatted(bool value)
{
    formatted = value;
}

void XmlWriter::setIndentString(const char* indent)
{
    if (indent)
        indentString = indent;
}

void XmlWriter::setIndentString(const std::string& indent)
{
    indentString = indent;
}

void XmlWriter::reset()
{
    openNodes.clear();
    document.reset();
}

std::string XmlWriter::str() const
{
    if (formatted)
        return XmlHelper::outerXml(document, true, indentString.empty() ? nullptr : indentString.c_str());
    return XmlHelper::outerXml(document, false, nullptr);
}

} // namespace tarn
