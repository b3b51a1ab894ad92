#pragma once
// XmlHelper: free functions around the document model and the writer.
//
//  - Entity encoding and decoding (XmlEncode / XmlDecode): pure-ASCII character data and back.
//  - The input gate (isValidUTF8 / sanitize / replaceInvalidNumericEncodings): every text that
//    enters the library passes sanitize first.
//  - The typed value bridge over node handles (getFromNode, AddChild, toXml, fromXml).
//  - The pugixml bridge (getFromNode, fromXml, convert, innerXml, outerXml over pugixml nodes).
//  - Serialisers for the product records TarnTypes::Source and AV_Class.
//
// Threads: no function keeps state; all may run on any thread, with the node rules of
// XmlNode.h for the handles they are given.
// Errors: result codes, empty handles and empty texts. What can leave: std::bad_alloc, and
// utfcpp's utf8::invalid_utf8 / utf8::invalid_code_point from XmlEncode on invalid UTF-8.
#include <string>
#include <string_view>

#include <pugixml.hpp>

#include "tarn/TarnTypes.h"
#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

// Lower-cases each byte through the global locale's ctype<char> (as boost::to_lower_copy).
TARNXML_API std::string ToLower(const std::string& text);

namespace XmlHelper {

// --- Entity encoding and decoding --------------------------------------------------------------
// The five markup characters become &amp; &lt; &gt; &apos; &quot;; every other character outside
// printable ASCII (tab, line feed and carriage return included) becomes &#xHEX; (upper case).
// Stops at a zero byte; a multi-byte sequence cut off at the end is dropped quietly. Invalid
// UTF-8 throws utf8::invalid_utf8 or utf8::invalid_code_point to the caller.
TARNXML_API std::string XmlEncode(const char* text);
TARNXML_API std::string XmlEncode(const std::string& text);
// Resolves the five entities and &#N; / &#xH; references (U+FFFD for values that are not Unicode
// scalar values); anything else is copied. Reads up to the first zero byte. Never throws on
// content.
TARNXML_API std::string XmlDecode(const char* text);
TARNXML_API std::string XmlDecode(const std::string& text);

// --- The input gate -------------------------------------------------------------------------------
// Result of sanitize: refers to the caller's input, the caller's scratch text, or a constant
// empty text. Owns nothing. `data` is never null and data[size] is a zero byte when the input
// was a zero-terminated string or a std::string.
struct TextView {
    const char* data;
    unsigned int size;
    std::string_view view() const { return std::string_view(data, size); }
};

// Well-formed UTF-8 (no overlongs, surrogates or values above U+10FFFF) without ASCII control
// characters other than tab, line feed and carriage return. Null and empty input give false.
TARNXML_API bool isValidUTF8(const char* data, unsigned int size);
TARNXML_API bool isValidUTF8(const char* text);
TARNXML_API bool isValidUTF8(const std::string& text);

// Valid input comes back as it is (no copy, no allocation); other input is repaired into
// `scratch` (each invalid sequence becomes U+FFFD, a sequence cut off at the end is dropped,
// control characters become "?") and the view refers to `scratch`. Null or empty input gives an
// empty view and leaves `scratch` untouched. Never throws.
// Sizes are counted in 32 bits: a text of more than 4 GiB - 1 bytes (std::string or
// zero-terminated) is refused whole, never cut: isValidUTF8 gives false and sanitize gives the
// empty view with `scratch` untouched, so XmlDocument::Load, for one, fails on it with -1.
TARNXML_API TextView sanitize(const char* data, unsigned int size, std::string& scratch);
TARNXML_API TextView sanitize(const char* text, std::string& scratch);
TARNXML_API TextView sanitize(const std::string& text, std::string& scratch);

// Every numeric character reference to a control character other than tab, line feed and
// carriage return (or to a value beyond 32 bits) becomes "?". Reads up to the first zero byte.
TARNXML_API std::string replaceInvalidNumericEncodings(const std::string& text);

// --- Typed value bridge over node handles -----------------------------------------------------------
// Result codes: 0 read; -1 child absent or its text empty (output unchanged); -2 child not
// created; otherwise the setter's code. Empty handles and null names/values give the failure
// code of the operation, never a crash.

// A null name gives `node` itself (shared); otherwise its child element of that name.
TARNXML_API tarn::XmlNodePtr getFromNode(tarn::XmlNodePtr& node, const char* name);
// Appends a child element and returns a handle on it; empty on failure.
TARNXML_API tarn::XmlNodePtr AddChild(tarn::XmlNodePtr& parent, const std::string& name, const std::string& value);
TARNXML_API tarn::XmlNodePtr AddChild(tarn::XmlNodePtr& parent, const char* name, const char* value);

TARNXML_API int toXml(int value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(unsigned int value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(long long value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(unsigned long long value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(double value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(bool value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(const char* value, tarn::XmlNodePtr& parent, const char* name);
TARNXML_API int toXml(const std::string& value, tarn::XmlNodePtr& parent, const char* name);

TARNXML_API int fromXml(int& value, tarn::XmlNodePtr& node, const char* name);
TARNXML_API int fromXml(unsigned int& value, tarn::XmlNodePtr& node, const char* name);
TARNXML_API int fromXml(long long& value, tarn::XmlNodePtr& node, const char* name);
TARNXML_API int fromXml(unsigned long long& value, tarn::XmlNodePtr& node, const char* name);
TARNXML_API int fromXml(double& value, tarn::XmlNodePtr& node, const char* name);
// False only for the exact text of FALSE_STRING; any other non-empty text is true.
TARNXML_API int fromXml(bool& value, tarn::XmlNodePtr& node, const char* name);
TARNXML_API int fromXml(std::string& value, tarn::XmlNodePtr& node, const char* name);

// --- pugixml bridge ----------------------------------------------------------------------------------
// A null name gives `node` itself; otherwise its first child of that name (or a null node).
TARNXML_API pugi::xml_node getFromNode(const pugi::xml_node& node, const char* name);
// pugixml's own conversions (as_bool, as_double, as_int, ...): 0, or -1 (output unchanged) when
// the child is missing or has no character data.
TARNXML_API int fromXml(bool& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(double& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(int& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(unsigned int& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(long long& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(unsigned long long& value, const pugi::xml_node& node, const char* name);
TARNXML_API int fromXml(std::string& value, const pugi::xml_node& node, const char* name);
// Serialises the node and loads it into `document` (parse_full), replacing its content.
TARNXML_API bool convert(const tarn::XmlNodePtr& node, pugi::xml_document& document);
// A detached XmlNode copy of a pugixml node; empty when it does not parse as a document.
TARNXML_API tarn::XmlNodePtr convert(pugi::xml_node node);
// The node's children (innerXml) or the node itself (outerXml) printed by pugixml: format_indent
// with `indent` (null: "") when formatted, format_raw otherwise; then
// replaceInvalidNumericEncodings.
TARNXML_API std::string innerXml(const pugi::xml_node& node, bool formatted, const char* indent);
TARNXML_API std::string outerXml(const pugi::xml_node& node, bool formatted, const char* indent);

// --- Product records ------------------------------------------------------------------------------------
// <name><id>…</id><type>…</type></name> appended to `parent`.
TARNXML_API int toXml(const TarnTypes::Source& source, tarn::XmlNodePtr& parent, const char* name);
// <name><bindingid>…</bindingid><class>…</class></name> appended to `parent`.
TARNXML_API int toXml(const AV_Class& avClass, tarn::XmlNodePtr parent, const char* name);

} // namespace XmlHelper
