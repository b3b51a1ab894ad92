// tarn::XmlWriter, special content: CDATA sections, comments, raw markup and binary as text.
#include "tarnxml/XmlWriter.h"

#include <cstring>

#include <boost/system/error_code.hpp>

#include "tarn/crypto.h"
#include "tarnxml/XmlHelper.h"

namespace tarn {

namespace {

// Appends a CDATA section or comment to `parent` holding the cleaned text (none when null).
void appendTextNode(pugi::xml_node parent, pugi::xml_node_type type, const char* text)
{
    pugi::xml_node node = parent.append_child(type);
    if (!text)
        return;
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(text, scratch);
    node.set_value(clean.data, clean.size);
}

} // namespace

void XmlWriter::writeCDATA(const char* text)
{
    appendTextNode(target(), pugi::node_cdata, text);
}

void XmlWriter::writeCDATA(const std::string& text)
{
    writeCDATA(text.c_str());
}

void XmlWriter::writeComment(const char* text)
{
    appendTextNode(target(), pugi::node_comment, text);
}

void XmlWriter::writeComment(const std::string& text)
{
    writeComment(text.c_str());
}

void XmlWriter::startCDATA()
{
    openNodes.push_back(target().append_child(pugi::node_cdata));
}

void XmlWriter::endCDATA()
{
    if (!openNodes.empty() && openNodes.back().type() == pugi::node_cdata)
        openNodes.pop_back();
}

void XmlWriter::startComment()
{
    openNodes.push_back(target().append_child(pugi::node_comment));
}

void XmlWriter::endComment()
{
    if (!openNodes.empty() && openNodes.back().type() == pugi::node_comment)
        openNodes.pop_back();
}

void XmlWriter::writeRaw(const char* text, unsigned int length)
{
    if (!text || length == 0)
        return;
    if (openNodes.empty()) {
        // Loading replaces the whole document; its root element becomes the current node.
        const pugi::xml_parse_result parsed =
            document.load_buffer(text, length, pugi::parse_default, pugi::encoding_auto);
        if (parsed)
            openNodes.push_back(document.document_element());
        return;
    }
    // The parse result is of no interest: what parsed is appended, the rest is pugixml's call.
    openNodes.back().append_buffer(text, length, pugi::parse_default, pugi::encoding_auto);
}

void XmlWriter::writeRaw(const char* text)
{
    if (!text)
        return;
    writeRaw(text, static_cast<unsigned int>(std::strlen(text)));
}

void XmlWriter::writeRaw(const std::string& text)
{
    writeRaw(text.data(), static_cast<unsigned int>(text.size()));
}

void XmlWriter::writeBase64(const unsigned char* data, unsigned int offset, unsigned int count)
{
    if (!data || count == 0)
        return;
    boost::system::error_code error;
    // The encoder's error is not looked at: whatever text it returns is written.
    writeText(tarn::crypto::base64Encode(data + offset, count, false, error));
}

void XmlWriter::writeBase64(const char* data, unsigned int offset, unsigned int count)
{
    writeBase64(reinterpret_cast<const unsigned char*>(data), offset, count);
}

void XmlWriter::writeBase64(const std::string& data)
{
    writeBase64(data.data(), 0, static_cast<unsigned int>(data.size()));
}

void XmlWriter::writeBinaryHex(const unsigned char* data, unsigned int offset, unsigned int count)
{
    if (!data || count == 0)
        return;
    boost::system::error_code error;
    writeText(tarn::crypto::hexEncode(data + offset, count, true, error));
}

void XmlWriter::writeBinaryHex(const char* data, unsigned int offset, unsigned int count)
{
    writeBinaryHex(reinterpret_cast<const unsigned char*>(data), offset, count);
}

void XmlWriter::writeBinaryHex(const std::string& data)
{
    writeBinaryHex(data.data(), 0, static_cast<unsigned int>(data.size()));
}

} // namespace tarn
