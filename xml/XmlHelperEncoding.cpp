// Text in other encodings (toUTF8 / fromUTF8) over libxml2's encoding handlers, and the XML name
// checks.
//
// The handlers are driven directly (their input/output functions, or the iconv descriptors
// libxml2 opened for them) rather than through xmlCharEncInFunc / xmlCharEncOutFunc: those report
// a failure through libxml2's global error handler and do not say where in the input it was,
// while the caller of toUTF8 is told the byte offset and nothing is printed.
#include "tarnxml/XmlHelper.h"

#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlstring.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <vector>

#ifdef LIBXML_ICONV_ENABLED
#include <iconv.h>
#endif

namespace XmlHelper {

namespace {

struct HandlerCloser {
    void operator()(xmlCharEncodingHandler* handler) const noexcept { xmlCharEncCloseFunc(handler); }
};
typedef std::unique_ptr<xmlCharEncodingHandler, HandlerCloser> Handler;

// Longest encoding name looked up; libxml2 copies names into a 100-byte buffer.
constexpr std::size_t kMaxNameSize = 64;
// Input bytes handed to one conversion step; the output buffer holds what they can become.
constexpr std::size_t kChunk = 16 * 1024;
constexpr std::size_t kChunkOutput = kChunk * 4 + 16;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// EncName ::= [A-Za-z] ([A-Za-z0-9._] | '-')*. Anything else never reaches iconv, which would take
// suffixes such as "//IGNORE" as an order to drop what does not convert.
bool isEncodingName(std::string_view name)
{
    if (name.empty() || name.size() > kMaxNameSize || !isAsciiLetter(name[0]))
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return isAsciiLetter(c) || isAsciiDigit(c) || c == '.' || c == '_' || c == '-';
    });
}

// Upper case without separators: "utf-16le" and "UTF_16LE" both give "UTF16LE".
std::string compactName(std::string_view name)
{
    std::string out;
    for (char c : name) {
        if (c == '-' || c == '_' || c == '.')
            continue;
        out += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return out;
}

enum class Family { Utf8, Utf16, Utf16LE, Utf16BE, Utf32, Utf32LE, Utf32BE, Other };

Family familyOf(std::string_view name)
{
    const std::string compact = compactName(name);
    if (compact == "UTF8")
        return Family::Utf8;
    if (compact == "UTF16" || compact == "UCS2" || compact == "ISO10646UCS2")
        return Family::Utf16;
    if (compact == "UTF16LE")
        return Family::Utf16LE;
    if (compact == "UTF16BE")
        return Family::Utf16BE;
    if (compact == "UTF32" || compact == "UCS4" || compact == "ISO10646UCS4")
        return Family::Utf32;
    if (compact == "UTF32LE")
        return Family::Utf32LE;
    if (compact == "UTF32BE")
        return Family::Utf32BE;
    return Family::Other;
}

// Where the encoding value of a leading XML declaration lies, in ASCII-compatible text.
struct Declaration {
    bool hasEncoding = false;
    std::size_t valueBegin = 0;
    std::size_t valueSize = 0;
};

// Reads "<?xml" S pseudo-attributes "?>" at the very start. Anything malformed counts as no
// declaration (the parser reports it later).
Declaration findDeclaration(std::string_view text)
{
    Declaration found;
    if (text.size() < 6 || text.compare(0, 5, "<?xml") != 0 || !isSpace(text[5]))
        return found;
    std::size_t i = 5;
    for (;;) {
        const std::size_t before = i;
        while (i < text.size() && isSpace(text[i]))
            ++i;
        if (text.compare(i, 2, "?>") == 0)
            return found;
        if (i == before)
            return Declaration(); // pseudo-attributes are separated by white space
        const std::size_t nameBegin = i;
        while (i < text.size() && isAsciiLetter(text[i]))
            ++i;
        const std::string_view name = text.substr(nameBegin, i - nameBegin);
        while (i < text.size() && isSpace(text[i]))
            ++i;
        if (name.empty() || i >= text.size() || text[i] != '=')
            return Declaration();
        ++i;
        while (i < text.size() && isSpace(text[i]))
            ++i;
        if (i >= text.size() || (text[i] != '"' && text[i] != '\''))
            return Declaration();
        const char quote = text[i++];
        const std::size_t valueBegin = i;
        while (i < text.size() && text[i] != quote && text[i] != '<' && text[i] != '>')
            ++i;
        if (i >= text.size() || text[i] != quote)
            return Declaration();
        if (name == "encoding") {
            found.hasEncoding = true;
            found.valueBegin = valueBegin;
            found.valueSize = i - valueBegin;
        }
        ++i;
    }
}

// --- One conversion step through a handler --------------------------------------------------------

enum class Step {
    Done,       // all input converted
    More,       // output buffer full, or the step took only part of the input: call again
    Invalid,    // the input at `consumed` does not convert
    Incomplete, // the input ends inside a character at `consumed`
};

bool canDecode(const xmlCharEncodingHandler* handler)
{
#ifdef LIBXML_ICONV_ENABLED
    if (handler->iconv_in != nullptr)
        return true;
#endif
    return handler->input != nullptr;
}

bool canEncode(const xmlCharEncodingHandler* handler)
{
#ifdef LIBXML_ICONV_ENABLED
    if (handler->iconv_out != nullptr)
        return true;
#endif
    return handler->output != nullptr;
}

#ifdef LIBXML_ICONV_ENABLED
Step iconvStep(iconv_t cd, const unsigned char* in, std::size_t inSize, std::size_t& consumed,
               unsigned char* out, std::size_t outSize, std::size_t& produced)
{
    char* inPtr = const_cast<char*>(reinterpret_cast<const char*>(in));
    char* outPtr = reinterpret_cast<char*>(out);
    std::size_t inLeft = inSize;
    std::size_t outLeft = outSize;
    const std::size_t result = iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft);
    const int error = errno;
    consumed = inSize - inLeft;
    produced = outSize - outLeft;
    if (result != static_cast<std::size_t>(-1))
        return Step::Done;
    if (error == E2BIG)
        return Step::More;
    if (error == EINVAL)
        return Step::Incomplete;
    return Step::Invalid;
}
#endif

// libxml2's own converters stop quietly when the output is full or the input ends inside a
// character; they take at most INT_MAX bytes a call.
Step functionStep(int (*convert)(unsigned char*, int*, const unsigned char*, int*), const unsigned char* in,
                  std::size_t inSize, std::size_t& consumed, unsigned char* out, std::size_t outSize,
                  std::size_t& produced)
{
    int inLength = static_cast<int>(std::min<std::size_t>(inSize, INT_MAX / 4));
    int outLength = static_cast<int>(std::min<std::size_t>(outSize, INT_MAX));
    const int given = inLength;
    const int result = convert(out, &outLength, in, &inLength);
    consumed = inLength > 0 ? static_cast<std::size_t>(inLength) : 0;
    produced = outLength > 0 ? static_cast<std::size_t>(outLength) : 0;
    if (result < 0)
        return Step::Invalid;
    if (inLength == given)
        return static_cast<std::size_t>(given) == inSize ? Step::Done : Step::More;
    // Stopped early: either the output had no room for the next character (a character takes at
    // most 4 bytes) or the input ends inside one.
    return outSize - produced < 8 ? Step::More : Step::Incomplete;
}

Step decodeStep(xmlCharEncodingHandler* handler, const unsigned char* in, std::size_t inSize, std::size_t& consumed,
                unsigned char* out, std::size_t outSize, std::size_t& produced)
{
#ifdef LIBXML_ICONV_ENABLED
    if (handler->iconv_in != nullptr)
        return iconvStep(handler->iconv_in, in, inSize, consumed, out, outSize, produced);
#endif
    return functionStep(handler->input, in, inSize, consumed, out, outSize, produced);
}

Step encodeStep(xmlCharEncodingHandler* handler, const unsigned char* in, std::size_t inSize, std::size_t& consumed,
                unsigned char* out, std::size_t outSize, std::size_t& produced)
{
#ifdef LIBXML_ICONV_ENABLED
    if (handler->iconv_out != nullptr)
        return iconvStep(handler->iconv_out, in, inSize, consumed, out, outSize, produced);
#endif
    return functionStep(handler->output, in, inSize, consumed, out, outSize, produced);
}

// Back to the initial shift state (stateful encodings such as ISO-2022-JP).
void resetState(xmlCharEncodingHandler* handler)
{
#ifdef LIBXML_ICONV_ENABLED
    if (handler->iconv_in != nullptr)
        iconv(handler->iconv_in, nullptr, nullptr, nullptr, nullptr);
    if (handler->iconv_out != nullptr)
        iconv(handler->iconv_out, nullptr, nullptr, nullptr, nullptr);
#else
    (void)handler;
#endif
}

// The result of a whole conversion: ok, or what stopped it at `offset`.
struct Outcome {
    Step stop = Step::Done;
    std::size_t offset = 0;
};

// Decodes all of `in` and appends the UTF-8 to `out`.
Outcome decodeAll(xmlCharEncodingHandler* handler, std::string_view input, std::string& out)
{
    const auto* in = reinterpret_cast<const unsigned char*>(input.data());
    std::vector<unsigned char> buffer(kChunkOutput);
    std::size_t pos = 0;
    while (pos < input.size()) {
        const std::size_t take = std::min(kChunk, input.size() - pos);
        std::size_t consumed = 0, produced = 0;
        const Step step = decodeStep(handler, in + pos, take, consumed, buffer.data(), buffer.size(), produced);
        out.append(reinterpret_cast<const char*>(buffer.data()), produced);
        const bool lastChunk = pos + take == input.size();
        pos += consumed;
        if (step == Step::Invalid)
            return Outcome{Step::Invalid, pos};
        // A character cut by the chunk's end is taken up again with the next chunk; cut by the
        // input's end it is an error.
        if (step == Step::Incomplete && lastChunk)
            return Outcome{Step::Incomplete, pos};
        if (consumed == 0 && produced == 0 && step != Step::Done)
            return Outcome{Step::Invalid, pos}; // no progress: never loop forever
    }
    return Outcome{};
}

// "&#xHEX;" for the character at `at`, itself encoded; false when `at` is not valid UTF-8 or the
// reference cannot be written either. `length` receives the character's length.
bool encodeReference(xmlCharEncodingHandler* handler, std::string_view input, std::size_t at, std::size_t& length,
                     std::string& out)
{
    int available = static_cast<int>(std::min<std::size_t>(input.size() - at, 4));
    const int c = xmlGetUTF8Char(reinterpret_cast<const unsigned char*>(input.data() + at), &available);
    if (c < 0 || available <= 0)
        return false;
    length = static_cast<std::size_t>(available);
    char reference[16];
    const int size = std::snprintf(reference, sizeof reference, "&#x%X;", static_cast<unsigned>(c));
    // The reference is ASCII: one step, and a failure of it ends the conversion.
    std::size_t consumed = 0, produced = 0;
    unsigned char buffer[64];
    const Step step = encodeStep(handler, reinterpret_cast<const unsigned char*>(reference),
                                 static_cast<std::size_t>(size), consumed, buffer, sizeof buffer, produced);
    if (step != Step::Done || consumed != static_cast<std::size_t>(size))
        return false;
    out.append(reinterpret_cast<const char*>(buffer), produced);
    return true;
}

// Encodes all of `input` (UTF-8) and appends it to `out`.
bool encodeAll(xmlCharEncodingHandler* handler, std::string_view input, std::string& out)
{
    const auto* in = reinterpret_cast<const unsigned char*>(input.data());
    std::vector<unsigned char> buffer(kChunkOutput);
    std::size_t pos = 0;
    while (pos < input.size()) {
        const std::size_t take = std::min(kChunk, input.size() - pos);
        std::size_t consumed = 0, produced = 0;
        const Step step = encodeStep(handler, in + pos, take, consumed, buffer.data(), buffer.size(), produced);
        out.append(reinterpret_cast<const char*>(buffer.data()), produced);
        const bool lastChunk = pos + take == input.size();
        pos += consumed;
        if (step == Step::Invalid || (step == Step::Incomplete && lastChunk)) {
            std::size_t length = 0;
            if (!encodeReference(handler, input, pos, length, out))
                return false;
            pos += length;
        } else if (consumed == 0 && produced == 0 && step != Step::Done) {
            return false;
        }
    }
    return true;
}

// UTF-16 surrogates must pair up: libxml2's converter passes a lone low surrogate through as
// (invalid) UTF-8. The offset of the first unit that breaks the rule, or npos; `truncated` tells
// a pair or unit cut off at the end.
std::size_t findUtf16Error(std::string_view text, bool littleEndian, bool& truncated)
{
    truncated = false;
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t units = text.size() / 2;
    for (std::size_t i = 0; i < units; ++i) {
        const unsigned unit = littleEndian ? (p[2 * i] | (p[2 * i + 1] << 8)) : ((p[2 * i] << 8) | p[2 * i + 1]);
        if ((unit & 0xFC00) == 0xDC00)
            return 2 * i;
        if ((unit & 0xFC00) != 0xD800)
            continue;
        if (i + 1 == units) {
            truncated = text.size() % 2 == 0;
            return 2 * i;
        }
        const unsigned next = littleEndian ? (p[2 * i + 2] | (p[2 * i + 3] << 8)) : ((p[2 * i + 2] << 8) | p[2 * i + 3]);
        if ((next & 0xFC00) != 0xDC00)
            return 2 * i;
        ++i;
    }
    if (text.size() % 2 != 0) {
        truncated = true;
        return text.size() - 1;
    }
    return std::string_view::npos;
}

EncodingResult failure(EncodingResult result, std::size_t offset, std::string error, std::string& out)
{
    out.clear();
    result.ok = false;
    result.errorOffset = offset;
    result.error = std::move(error);
    return result;
}

// The declaration's encoding value in `out` (UTF-8) becomes "UTF-8".
void rewriteDeclaration(std::string& out, const char* encoding)
{
    const Declaration declaration = findDeclaration(out);
    if (declaration.hasEncoding)
        out.replace(declaration.valueBegin, declaration.valueSize, encoding);
}

bool sameUnicodeForm(Family declared, Family found)
{
    switch (declared) {
    case Family::Utf16:
        return found == Family::Utf16LE || found == Family::Utf16BE;
    case Family::Utf32:
        return found == Family::Utf32LE || found == Family::Utf32BE;
    default:
        return declared == found;
    }
}

// UTF-16 and UTF-32 input, recognised from a byte order mark or the first bytes.
EncodingResult wideToUTF8(std::string_view input, Family form, std::size_t markSize, std::string& out)
{
    EncodingResult result;
    result.bom = markSize > 0;
    const bool sixteen = form == Family::Utf16LE || form == Family::Utf16BE;
    result.encoding = form == Family::Utf16LE ? "UTF-16LE"
                    : form == Family::Utf16BE ? "UTF-16BE"
                    : form == Family::Utf32LE ? "UTF-32LE"
                                              : "UTF-32BE";
    const std::string_view text = input.substr(markSize);
    if (sixteen) {
        bool truncated = false;
        const std::size_t bad = findUtf16Error(text, form == Family::Utf16LE, truncated);
        if (bad != std::string_view::npos)
            return failure(result, markSize + bad,
                           truncated ? "input ends inside a " + result.encoding + " character"
                                     : "input is not valid " + result.encoding + " (unpaired surrogate)",
                           out);
    }
    const Handler handler(xmlFindCharEncodingHandler(result.encoding.c_str()));
    if (!handler || !canDecode(handler.get()))
        return failure(result, 0, "encoding " + result.encoding + " is not available", out);
    resetState(handler.get());
    out.clear();
    out.reserve(text.size());
    const Outcome outcome = decodeAll(handler.get(), text, out);
    if (outcome.stop != Step::Done)
        return failure(result, markSize + outcome.offset,
                       outcome.stop == Step::Incomplete ? "input ends inside a " + result.encoding + " character"
                                                        : "input is not valid " + result.encoding,
                       out);
    const Declaration declaration = findDeclaration(out);
    if (declaration.hasEncoding) {
        const std::string declared = out.substr(declaration.valueBegin, declaration.valueSize);
        if (!sameUnicodeForm(familyOf(declared), form)) {
            // Everything before the value is ASCII: one code unit each.
            const std::size_t unit = sixteen ? 2 : 4;
            return failure(result, markSize + unit * declaration.valueBegin,
                           "the text is " + result.encoding + " but declares the encoding " + declared, out);
        }
        out.replace(declaration.valueBegin, declaration.valueSize, "UTF-8");
    }
    result.ok = true;
    return result;
}

// Text in an 8-bit encoding named by its declaration (`name`, found at `nameOffset` of the input);
// `text` starts at `base` in the input.
EncodingResult declaredToUTF8(std::string_view text, std::size_t base, const std::string& name,
                              std::size_t nameOffset, EncodingResult result, std::string& out)
{
    result.encoding = name;
    if (!isEncodingName(name))
        return failure(result, nameOffset, "unknown encoding " + name, out);
    const Handler handler(xmlFindCharEncodingHandler(name.c_str()));
    if (!handler)
        return failure(result, nameOffset, "unknown encoding " + name, out);
    if (!canDecode(handler.get()))
        return failure(result, nameOffset, "encoding " + name + " cannot be read", out);
    if (handler->name != nullptr)
        result.encoding = handler->name;
    resetState(handler.get());
    out.clear();
    out.reserve(text.size() + text.size() / 8);
    const Outcome outcome = decodeAll(handler.get(), text, out);
    if (outcome.stop != Step::Done)
        return failure(result, base + outcome.offset,
                       outcome.stop == Step::Incomplete ? "input ends inside a " + result.encoding + " character"
                                                        : "input is not valid " + result.encoding,
                       out);
    rewriteDeclaration(out, "UTF-8");
    result.ok = true;
    return result;
}

// EBCDIC, recognised from "<?xm" in its invariant characters: the declaration is read with
// libxml2's EBCDIC converter, then the whole text with the code page it declares.
EncodingResult ebcdicToUTF8(std::string_view input, std::string& out)
{
    EncodingResult result;
    result.encoding = "EBCDIC";
    const std::size_t end = input.substr(0, 512).find('\x6E'); // '>' in every EBCDIC code page
    if (end == std::string_view::npos)
        return failure(result, 0, "EBCDIC input without a readable XML declaration", out);
    const Handler probe(xmlGetCharEncodingHandler(XML_CHAR_ENCODING_EBCDIC));
    if (!probe || !canDecode(probe.get()))
        return failure(result, 0, "EBCDIC input cannot be read (no EBCDIC converter)", out);
    std::string head;
    const Outcome outcome = decodeAll(probe.get(), input.substr(0, end + 1), head);
    const Declaration declaration = findDeclaration(head);
    if (outcome.stop != Step::Done || !declaration.hasEncoding)
        return failure(result, outcome.stop != Step::Done ? outcome.offset : 0,
                       "EBCDIC input must declare its code page in the XML declaration", out);
    // One byte per character in the declaration: offsets in `head` are offsets in the input.
    const std::string name = head.substr(declaration.valueBegin, declaration.valueSize);
    if (familyOf(name) != Family::Other)
        return failure(result, declaration.valueBegin, "the declaration says " + name + " but the text is EBCDIC", out);
    return declaredToUTF8(input, 0, name, declaration.valueBegin, result, out);
}

} // namespace

EncodingResult toUTF8(std::string_view input, std::string& out)
{
    // libxml2 sets up its handler table once, under its own lock.
    xmlInitParser();
    out.clear();
    EncodingResult result;
    const auto* bytes = reinterpret_cast<const unsigned char*>(input.data());
    const xmlCharEncoding detected =
        input.size() >= 2 ? xmlDetectCharEncoding(bytes, static_cast<int>(std::min<std::size_t>(input.size(), 4)))
                          : XML_CHAR_ENCODING_NONE;
    const bool mark16 = input.size() >= 2 && ((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF));
    // UTF-32 marks first: FF FE 00 00 would otherwise read as a UTF-16 mark and a U+0000.
    if (input.size() >= 4 && bytes[0] == 0xFF && bytes[1] == 0xFE && bytes[2] == 0 && bytes[3] == 0)
        return wideToUTF8(input, Family::Utf32LE, 4, out);
    if (input.size() >= 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0xFE && bytes[3] == 0xFF)
        return wideToUTF8(input, Family::Utf32BE, 4, out);
    switch (detected) {
    case XML_CHAR_ENCODING_UTF16LE:
        return wideToUTF8(input, Family::Utf16LE, mark16 ? 2 : 0, out);
    case XML_CHAR_ENCODING_UTF16BE:
        return wideToUTF8(input, Family::Utf16BE, mark16 ? 2 : 0, out);
    case XML_CHAR_ENCODING_UCS4LE:
        return wideToUTF8(input, Family::Utf32LE, 0, out);
    case XML_CHAR_ENCODING_UCS4BE:
        return wideToUTF8(input, Family::Utf32BE, 0, out);
    case XML_CHAR_ENCODING_UCS4_2143:
    case XML_CHAR_ENCODING_UCS4_3412:
        result.encoding = "UCS-4";
        return failure(result, 0, "UCS-4 in unusual byte order is not supported", out);
    case XML_CHAR_ENCODING_EBCDIC:
        return ebcdicToUTF8(input, out);
    default:
        break;
    }

    // 8-bit text: UTF-8 unless the declaration names another encoding.
    // (libxml2 also says UTF-8 for a plain "<?xm" start, so the mark is checked here.)
    const std::size_t markSize =
        input.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF ? 3 : 0;
    result.bom = markSize > 0;
    result.encoding = "UTF-8";
    const std::string_view text = input.substr(markSize);
    const Declaration declaration = findDeclaration(text);
    const std::string_view declared =
        declaration.hasEncoding ? text.substr(declaration.valueBegin, declaration.valueSize) : std::string_view("UTF-8");
    const std::size_t nameOffset = markSize + declaration.valueBegin;
    const Family family = familyOf(declared);
    if (family == Family::Utf8) {
        out.assign(text);
        result.ok = true;
        return result;
    }
    const std::string name(declared);
    if (markSize > 0)
        return failure(result, nameOffset, "the byte order mark says UTF-8 but the declaration says " + name, out);
    if (family != Family::Other)
        return failure(result, nameOffset, "the declaration says " + name + " but the text is not " + name, out);
    return declaredToUTF8(text, markSize, name, nameOffset, result, out);
}

bool fromUTF8(std::string_view utf8, const std::string& encoding, std::string& out)
{
    xmlInitParser();
    out.clear();
    if (!isEncodingName(encoding))
        return false;
    // The declaration's encoding value is replaced by `encoding`: the text goes in three pieces.
    const Declaration declaration = findDeclaration(utf8);
    const std::size_t split = declaration.hasEncoding ? declaration.valueBegin : 0;
    const std::string_view head = utf8.substr(0, split);
    const std::string_view value = declaration.hasEncoding ? std::string_view(encoding) : std::string_view();
    const std::string_view tail = utf8.substr(declaration.hasEncoding ? split + declaration.valueSize : 0);

    const Family family = familyOf(encoding);
    if (family == Family::Utf8) {
        out.reserve(utf8.size());
        out.append(head).append(value).append(tail);
        return true;
    }
    // "UTF-16" alone: a byte order mark, then little-endian (as libxml2 writes it).
    const char* handlerName = encoding.c_str();
    if (family == Family::Utf16) {
        out.assign("\xFF\xFE");
        handlerName = "UTF-16LE";
    }
    const Handler handler(xmlFindCharEncodingHandler(handlerName));
    if (!handler || !canEncode(handler.get())) {
        out.clear();
        return false;
    }
    resetState(handler.get());
    out.reserve(out.size() + utf8.size() + utf8.size() / 8);
    if (!encodeAll(handler.get(), head, out) || !encodeAll(handler.get(), value, out) ||
        !encodeAll(handler.get(), tail, out)) {
        out.clear();
        return false;
    }
#ifdef LIBXML_ICONV_ENABLED
    // A stateful encoding returns to its initial state at the end.
    if (handler->iconv_out != nullptr) {
        char buffer[16];
        char* outPtr = buffer;
        std::size_t outLeft = sizeof buffer;
        if (iconv(handler->iconv_out, nullptr, nullptr, &outPtr, &outLeft) != static_cast<std::size_t>(-1))
            out.append(buffer, sizeof buffer - outLeft);
    }
#endif
    return true;
}

bool isXmlName(const std::string& name) noexcept
{
    if (name.empty() || name.find('\0') != std::string::npos || !isValidUTF8(name))
        return false;
    return xmlValidateName(reinterpret_cast<const xmlChar*>(name.c_str()), 0) == 0;
}

bool isQName(const std::string& name) noexcept
{
    if (name.empty() || name.find('\0') != std::string::npos || !isValidUTF8(name))
        return false;
    return xmlValidateQName(reinterpret_cast<const xmlChar*>(name.c_str()), 0) == 0;
}

} // namespace XmlHelper
