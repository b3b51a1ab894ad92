#pragma once
// XmlHelper: free functions around the document model and the writer.
//
//  - Entity encoding and decoding (XmlEncode / XmlDecode): pure-ASCII character data and back.
//  - The input gate (isValidUTF8 / sanitize / replaceInvalidNumericEncodings): every text that
//    enters the library passes sanitize first.
//  - The typed value bridge over node handles (getFromNode, AddChild, toXml, fromXml).
//  - The pugixml bridge (getFromNode, fromXml, convert, innerXml, outerXml over pugixml nodes).
//  - Serialisers for the product records TarnTypes::Source and AV_Class.
//  - Text in other encodings (toUTF8 / fromUTF8) and XML name checks (isXmlName / isQName).
//
// The pugixml classes and the product records are only declared here, not defined: a translation
// unit that calls the pugixml bridge includes <pugixml.hpp>, one that serialises the records
// includes "tarn/TarnTypes.h".
//
// Threads: no function keeps state; all may run on any thread, with the node rules of
// XmlNode.h for the handles they are given.
// Errors: result codes, empty handles and empty texts. What can leave: std::bad_alloc, and
// utfcpp's utf8::invalid_utf8 / utf8::invalid_code_point from XmlEncode on invalid UTF-8.
#include <cstddef>
#include <string>
#include <string_view>

#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

// Declared only; see above.
namespace pugi {
class xml_node;
class xml_document;
} // namespace pugi
namespace TarnTypes {
struct Source;
} // namespace TarnTypes
struct AV_Class;

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
TARNXML_API bool isValidUTF8(const char* data, unsigned int size) noexcept;
TARNXML_API bool isValidUTF8(const char* text) noexcept;
TARNXML_API bool isValidUTF8(const std::string& text) noexcept;

// Valid input comes back as it is (no copy, no allocation); other input is repaired into
// `scratch` (each invalid sequence becomes U+FFFD, a sequence cut off at the end is dropped,
// control characters become "?") and the view refers to `scratch`. Null or empty input gives an
// empty view and leaves `scratch` untouched. Never throws.
// Sizes are counted in 32 bits: a text of more than 4 GiB - 1 bytes (std::string or
// zero-terminated) is refused whole, never cut: isValidUTF8 gives false and sanitize gives the
// empty view with `scratch` untouched, so XmlDocument::Load, for one, fails on it with -1.
TARNXML_API TextView sanitize(const char* data, unsigned int size, std::string& scratch) noexcept;
TARNXML_API TextView sanitize(const char* text, std::string& scratch) noexcept;
TARNXML_API TextView sanitize(const std::string& text, std::string& scratch) noexcept;

// Every numeric character reference to a control character other than tab, line feed and
// carriage return (or to a value beyond 32 bits) becomes "?". Reads up to the first zero byte.
TARNXML_API std::string replaceInvalidNumericEncodings(const std::string& text);

// --- Text in other encodings ---------------------------------------------------------------------
// What toUTF8 found. `encoding` names the encoding the input was read in: "UTF-8", "UTF-16LE",
// "UTF-16BE", "UTF-32LE", "UTF-32BE" when it comes from the byte order mark or the first bytes,
// otherwise libxml2's name for the declared encoding ("ISO-8859-1", "US-ASCII") or the declared
// name as written ("windows-1252", "EUC-JP"). Set also when !ok, as far as it was found.
struct EncodingResult {
    bool ok = false;
    std::string encoding;
    bool bom = false;            // a byte order mark was present (it is not in the output)
    std::size_t errorOffset = 0; // !ok: offset in the input of the first byte that does not decode
    std::string error;           // !ok: what went wrong, e.g. "input is not valid windows-1252"
};

// Converts an XML text to UTF-8 with libxml2's encoding handlers (its own for UTF-16, ISO-8859-1
// and ASCII, iconv for the rest). The encoding is found as libxml2 finds it: a byte order mark
// (UTF-8, UTF-16 LE/BE, UTF-32 LE/BE), else the first bytes "<?" in UTF-16 or UTF-32 without a mark, else the
// encoding pseudo-attribute of the XML declaration; no mark and no declared encoding means UTF-8.
// In the output the declaration's encoding value becomes "UTF-8" (quotes and everything else
// kept), so XmlDocument::Load reads it as it is; the byte order mark is dropped.
// UTF-8 input is returned unchanged apart from a dropped mark: it is NOT validated here (Load's
// gate repairs it); the declaration may name UTF-8 in any spelling libxml2 knows ("utf8").
// Errors (ok false, `out` empty, `errorOffset` and `error` set; nothing is ever repaired):
//   - a byte sequence that is not valid in the encoding, or a character cut off at the end:
//     the offset of its first byte. ISO-8859-1 accepts every byte; windows-1252 rejects its five
//     unassigned bytes 0x81 0x8D 0x8F 0x90 0x9D; ASCII rejects every byte from 0x80; UTF-16
//     rejects unpaired surrogates;
//   - a declaration that contradicts the bytes (UTF-16 or UTF-32 declared in 8-bit text, a
//     UTF-8 byte order mark with another declared encoding, 8-bit encodings declared in UTF-16):
//     the offset of the declared name;
//   - an encoding name that libxml2 and iconv do not know (or know only for writing), or that is
//     not an XML encoding name (letters, digits, '.', '_', '-'): the offset of the declared name;
//   - EBCDIC input (recognised from "<?xm" in EBCDIC) whose declaration does not name its code
//     page: offset 0. With a code page ("IBM037", "IBM500", ...) it is converted like the rest.
// Empty input gives ok, "UTF-8" and an empty output.
// Threads: any thread, no shared state. Throws only std::bad_alloc.
TARNXML_API EncodingResult toUTF8(std::string_view input, std::string& out);

// Converts UTF-8 text to `encoding` (any name libxml2 or iconv knows) for writing back. Characters
// the encoding cannot hold become character references "&#xHEX;" (as libxml2's own output does; in
// markup such as names that leaves the text not well-formed). When the text starts with an XML
// declaration that has an encoding pseudo-attribute, its value becomes `encoding` as given, so
// fromUTF8(toUTF8(x), name) gives x back for x declared as `name` (without byte order mark). "UTF-16" is
// written little-endian after a byte order mark, "UTF-16LE"/"UTF-16BE" without one; "UTF-8" in
// any spelling copies the text. false, with `out` empty, when the encoding is unknown or cannot be
// written, or the input is not valid UTF-8 where a character had to be replaced.
// Threads: any thread, no shared state. Throws only std::bad_alloc.
TARNXML_API bool fromUTF8(std::string_view utf8, const std::string& encoding, std::string& out);

// --- XML names ----------------------------------------------------------------------------------------
// XML 1.0 Name / Namespaces QName (libxml2's xmlValidateName / xmlValidateQName, no surrounding
// spaces allowed). The text must be valid UTF-8 without zero bytes; "" is neither.
TARNXML_API bool isXmlName(const std::string& name) noexcept;
TARNXML_API bool isQName(const std::string& name) noexcept;

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
