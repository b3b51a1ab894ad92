#pragma once
// tarn::XmlWriter: builds a document call by call in a pugixml document and prints it on demand.
//
// Model
//   Every call adds nodes to an in-memory pugixml document; a stack of open nodes says where the
//   next node goes (the current node, or the document when nothing is open). str() prints the
//   whole document at any moment, any number of times, with every still-open element closed;
//   an attribute written after an element's text still lands in its start tag; end calls only
//   pop the stack and never change what was written.
//
// Misuse is silent and harmless
//   Null names and texts, end calls that do not match the current node, text or attributes with
//   nothing open, and writes under a CDATA section or a comment are ignored. A startElement under
//   a CDATA section or comment pushes an empty handle: everything written after it is dropped
//   until endDocument or reset.
//
// Text
//   Values (element text, attribute values, text, CDATA, comments) are stored through
//   XmlHelper::sanitize (invalid UTF-8 repaired, control characters made "?"); names and
//   declaration values are stored as given. Escaping is pugixml's, at print time; the printed
//   text then passes XmlHelper::replaceInvalidNumericEncodings. writeRaw parses markup with
//   pugixml's parse_default and does not sanitise it.
//
// Ownership and threads
//   The writer owns its document; it cannot be copied. One writer is used by one thread at a
//   time; separate writers are independent.
//
// Errors
//   No status results; only std::bad_alloc can leave the writer.
#include <deque>
#include <string>

#include <boost/noncopyable.hpp>
#include <pugixml.hpp>

#include "tarnxml/tarnxml_export.h"

namespace tarn {

class TARNXML_API XmlWriter : private boost::noncopyable {
public:
    XmlWriter();
    virtual ~XmlWriter();

    // Prepends an XML declaration: version (null: "1.0"), encoding (null: "UTF-8"), standalone
    // (omitted when null or exactly "no"). Every call prepends another declaration.
    void startDocument(const char* version, const char* encoding, const char* standalone);
    // These write exactly the attributes given, without defaults or the "no" rule.
    void startDocument(const std::string& version);
    void startDocument(const std::string& version, const std::string& encoding);
    void startDocument(const std::string& version, const std::string& encoding, const std::string& standalone);
    // Empties the stack; the document stays.
    void endDocument();

    void startElement(const char* name);
    void startElement(const std::string& name);
    // Pops the current node if it is an element.
    void endElement();

    // A leaf element; a null value gives no content, "" an empty text child.
    void writeElement(const char* name, const char* value);
    void writeElement(const char* name, const std::string& value);
    void writeElement(const std::string& name, const char* value);
    void writeElement(const std::string& name, const std::string& value);
    // "1"/"0" when numeric, else "True"/"False".
    void writeElement(const char* name, bool value, bool numeric);
    void writeElement(const std::string& name, bool value, bool numeric);

    // Appends an attribute to the current element (a repeated name adds a second one).
    void writeAttribute(const char* name, const char* value);
    void writeAttribute(const char* name, const std::string& value);
    void writeAttribute(const std::string& name, const char* value);
    void writeAttribute(const std::string& name, const std::string& value);
    void writeAttribute(const char* name, bool value, bool numeric);
    void writeAttribute(const std::string& name, bool value, bool numeric);

    // Sets (replaces) the text of the current element or CDATA section.
    void writeText(const char* text);
    void writeText(const std::string& text);
    void writeText(bool value, bool numeric);

    void setFormatted(bool formatted);
    // A null pointer keeps the previous indent string.
    void setIndentString(const char* indent);
    void setIndentString(const std::string& indent);
    // Empties the stack and the document; keeps the formatting settings.
    void reset();
    // The printed document: one line when unformatted; one node per line, indented with the
    // indent string per level and ending with a line feed, when formatted.
    std::string str() const;

    // --- Special content ------------------------------------------------------------------------
    void writeCDATA(const char* text);
    void writeCDATA(const std::string& text);
    void writeComment(const char* text);
    void writeComment(const std::string& text);
    void startCDATA();
    void endCDATA();
    void startComment();
    void endComment();
    // Parses `length` bytes of markup. With nothing open it REPLACES the whole document and makes
    // the parsed root element current; with a node open it appends the parsed nodes to it.
    void writeRaw(const char* text, unsigned int length);
    void writeRaw(const char* text);
    void writeRaw(const std::string& text);
    // Base64 / hexadecimal text of `count` bytes from data + offset as the current node's text.
    void writeBase64(const unsigned char* data, unsigned int offset, unsigned int count);
    void writeBase64(const char* data, unsigned int offset, unsigned int count);
    void writeBase64(const std::string& data);
    void writeBinaryHex(const unsigned char* data, unsigned int offset, unsigned int count);
    void writeBinaryHex(const char* data, unsigned int offset, unsigned int count);
    void writeBinaryHex(const std::string& data);

private:
    pugi::xml_node target() const;

    pugi::xml_document document;
    std::deque<pugi::xml_node> openNodes;
    std::string indentString;
    bool formatted;
};

} // namespace tarn
