// Text in other encodings (XmlHelper::toUTF8 / fromUTF8), the XML name checks, the version query,
// and what XmlHelper.h leaves out: it must not define the pugixml classes or the product records.
#include "tarnxml/XmlHelper.h"

#include <type_traits>

namespace header_check {
template <typename T, typename = void>
struct IsComplete : std::false_type {};
template <typename T>
struct IsComplete<T, std::void_t<decltype(sizeof(T))>> : std::true_type {};
#ifdef PUGIXML_VERSION
#error "XmlHelper.h includes pugixml.hpp"
#endif
static_assert(!IsComplete<pugi::xml_node>::value, "XmlHelper.h defines pugi::xml_node");
static_assert(!IsComplete<pugi::xml_document>::value, "XmlHelper.h defines pugi::xml_document");
static_assert(!IsComplete<TarnTypes::Source>::value, "XmlHelper.h defines TarnTypes::Source");
static_assert(!IsComplete<AV_Class>::value, "XmlHelper.h defines AV_Class");
} // namespace header_check

#include "tarnxml/XmlDocument.h"
#include "tarnxml/tarnxml_version.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using XmlHelper::EncodingResult;

namespace {

// Bytes of a UTF-16 or UTF-32 literal, optionally after a byte order mark.
template <typename Char>
std::string encoded(std::basic_string<Char> text, bool littleEndian, bool mark)
{
    std::string out;
    for (Char unit : (mark ? std::basic_string<Char>(1, Char(0xFEFF)) : std::basic_string<Char>()) + text)
        for (std::size_t i = 0; i < sizeof(Char); ++i)
            out += static_cast<char>(unit >> 8 * (littleEndian ? i : sizeof(Char) - 1 - i));
    return out;
}
std::string utf16(std::u16string text, bool littleEndian, bool mark) { return encoded(text, littleEndian, mark); }
std::string utf32(std::u32string text, bool littleEndian, bool mark) { return encoded(text, littleEndian, mark); }

const std::string kDecl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// <?xml version="1.0"  and  encoding="IBM037"  in EBCDIC code page 037.
const std::string kEbcdicStart = "\x4C\x6F\xA7\x94\x93\x40\xA5\x85\x99\xA2\x89\x96\x95\x7E\x7F\xF1\x4B\xF0\x7F";
const std::string kEbcdicEncoding = "\x40\x85\x95\x83\x96\x84\x89\x95\x87\x7E\x7F\xC9\xC2\xD4\xF0\xF3\xF7\x7F";

struct Good {
    const char* label;
    std::string input, expected, encoding; // expected: the UTF-8 output; encoding: the one reported
    bool bom;
    std::string roundTripName; // "" = fromUTF8 cannot give the input back
};

std::vector<Good> goodCases()
{
    const std::u16string doc16 = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\u00E9\U0001F600</a>";
    const std::string doc8 = kDecl + "<a>\xC3\xA9\xF0\x9F\x98\x80</a>";
    return {
        {"latin1", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>caf\xE9 \xFC\xFF</a>",
         kDecl + "<a>caf\xC3\xA9 \xC3\xBC\xC3\xBF</a>", "ISO-8859-1", false, "ISO-8859-1"},
        {"windows-1252", "<?xml version='1.0' encoding='windows-1252'?><p>\x80 \x93x\x94 \xE4</p>",
         "<?xml version='1.0' encoding='UTF-8'?><p>\xE2\x82\xAC \xE2\x80\x9Cx\xE2\x80\x9D \xC3\xA4</p>",
         "windows-1252", false, "windows-1252"},
        {"utf16le-bom", utf16(doc16, true, true), doc8, "UTF-16LE", true, "UTF-16"},
        {"utf16be-bom", utf16(doc16, false, true), doc8, "UTF-16BE", true, ""},
        {"utf16le-nobom", utf16(u"<?xml version=\"1.0\" encoding=\"UTF-16LE\"?><a>\u00E9</a>", true, false),
         kDecl + "<a>\xC3\xA9</a>", "UTF-16LE", false, "UTF-16LE"},
        {"utf16be-nobom", utf16(u"<?xml version=\"1.0\"?><a>\u00E9</a>", false, false),
         "<?xml version=\"1.0\"?><a>\xC3\xA9</a>", "UTF-16BE", false, ""},
        {"utf32le-bom", utf32(U"<a>\u00E9\U0001F600</a>", true, true), "<a>\xC3\xA9\xF0\x9F\x98\x80</a>", "UTF-32LE",
         true, ""},
        {"utf32be-nobom", utf32(U"<?xml version=\"1.0\" encoding=\"UTF-32\"?><a/>", false, false), kDecl + "<a/>",
         "UTF-32BE", false, ""},
        {"ebcdic", kEbcdicStart + kEbcdicEncoding + "\x6F\x6E\x4C\x81\x6E\x51\x4C\x61\x81\x6E",
         kDecl + "<a>\xC3\xA9</a>", "IBM037", false, "IBM037"},
        // 日本 and half-width katakana ｱ in EUC-JP.
        {"euc-jp", "<?xml version=\"1.0\" encoding=\"EUC-JP\"?><t>\xC6\xFC\xCB\xDC \x8E\xB1</t>",
         kDecl + "<t>\xE6\x97\xA5\xE6\x9C\xAC \xEF\xBD\xB1</t>", "EUC-JP", false, "EUC-JP"},
        {"ascii", "<?xml version=\"1.0\" encoding=\"US-ASCII\"?><a>x</a>", kDecl + "<a>x</a>", "US-ASCII", false,
         "US-ASCII"},
        // UTF-8 is passed through: the declaration keeps its spelling, invalid bytes stay for the gate.
        {"utf8-bom", "\xEF\xBB\xBF<a>\xC3\xA9</a>", "<a>\xC3\xA9</a>", "UTF-8", true, ""},
        {"utf8-declared", "<?xml version=\"1.0\" encoding=\"utf8\"?><a>\xFF</a>",
         "<?xml version=\"1.0\" encoding=\"utf8\"?><a>\xFF</a>", "UTF-8", false, "utf8"},
        {"no-declaration", "<a>\xE9</a>", "<a>\xE9</a>", "UTF-8", false, "UTF-8"},
        {"empty", "", "", "UTF-8", false, "UTF-8"},
    };
}

TEST(ToUtf8, ConvertsEachEncoding)
{
    std::string out;
    for (const Good& c : goodCases()) {
        SCOPED_TRACE(c.label);
        out = "stale";
        const EncodingResult result = XmlHelper::toUTF8(c.input, out);
        ASSERT_TRUE(result.ok) << result.error;
        EXPECT_EQ(out, c.expected);
        EXPECT_EQ(result.encoding, c.encoding);
        EXPECT_EQ(result.bom, c.bom);
        std::string back; // and back again, where the encoding allows
        EXPECT_TRUE(c.roundTripName.empty() || (XmlHelper::fromUTF8(out, c.roundTripName, back) && back == c.input))
            << back;
    }
}

TEST(ToUtf8, ReportsUndecodableInputWithItsOffset)
{
    const std::string latinDecl = "<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>";
    const std::string eucDecl = "<?xml version=\"1.0\" encoding=\"EUC-JP\"?><t>";
    const std::u16string decl16 = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>";
    struct Bad { const char* label; std::string input; std::size_t offset; const char* errorPart; };
    std::vector<Bad> cases = {
        {"ascii-high-byte", "<?xml version=\"1.0\" encoding=\"US-ASCII\"?><a>ab\xE9</a>", 46, "US-ASCII"},
        {"ascii-alias", "<?xml version=\"1.0\" encoding=\"ASCII\"?><a>\x80</a>", 41, "ASCII"},
        {"euc-jp-invalid", eucDecl + "\xC6\xFC\xC6</t>", eucDecl.size() + 2, "EUC-JP"},
        {"euc-jp-cut-off", eucDecl + "\xC6\xFC\xC6", eucDecl.size() + 2, "ends inside"},
        {"utf16-lone-low", utf16(decl16 + u"x\xDC00</a>", true, true), 2 + 2 * (decl16.size() + 1), "surrogate"},
        {"utf16-high-without-low", utf16(decl16 + u"\xD800x</a>", false, true), 2 + 2 * decl16.size(), "surrogate"},
        {"utf16-odd-length", utf16(decl16, true, true) + "<", 2 + 2 * decl16.size(), "ends inside"},
        {"utf32-surrogate", utf32(U"<a>\xD800</a>", true, true), 4 + 4 * 3, "UTF-32LE"},
        {"utf16-declared-in-8-bit", "<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>", 30, "UTF-16"},
        {"latin1-declared-in-utf16", utf16(u"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", true, true),
         2 + 2 * 30, "ISO-8859-1"},
        {"utf16le-declared-in-be", utf16(u"<?xml version=\"1.0\" encoding=\"UTF-16LE\"?><a/>", false, false), 2 * 30,
         "UTF-16LE"},
        {"utf8-bom-declares-latin1", "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", 33,
         "byte order mark"},
        {"unknown-name", "<?xml version=\"1.0\" encoding=\"x-no-such-encoding\"?><a/>", 30, "unknown"},
        // iconv would take the suffix as an order to drop what does not convert.
        {"iconv-suffix", "<?xml version=\"1.0\" encoding=\"windows-1252//IGNORE\"?><a>\x81</a>", 30, "unknown"},
        {"ebcdic-without-code-page", kEbcdicStart + "\x6F\x6E\x4C\x81\x61\x6E", 0, "code page"},
    };
    // The five bytes windows-1252 leaves unassigned.
    for (const char byte : {'\x81', '\x8D', '\x8F', '\x90', '\x9D'})
        cases.push_back({"windows-1252-unassigned", latinDecl + "ok" + byte + "</a>", latinDecl.size() + 2, "windows-1252"});
    for (const Bad& c : cases) {
        SCOPED_TRACE(c.label);
        std::string out = "stale";
        const EncodingResult result = XmlHelper::toUTF8(c.input, out);
        EXPECT_FALSE(result.ok);
        EXPECT_EQ(result.errorOffset, c.offset);
        EXPECT_NE(result.error.find(c.errorPart), std::string::npos) << result.error;
        EXPECT_TRUE(out.empty());
    }
}

// Conversion runs in steps of a fixed size: characters cut by a step boundary, and offsets far
// into the input, must come out right.
TEST(ToUtf8, LongInputsAcrossConversionSteps)
{
    std::string euc = "<?xml version=\"1.0\" encoding=\"EUC-JP\"?><t>", expected = kDecl + "<t>", out;
    for (int i = 0; i < 70000; ++i) {
        euc += "\xC6\xFC";
        expected += "\xE6\x97\xA5";
    }
    ASSERT_TRUE(XmlHelper::toUTF8(euc + "</t>", out).ok);
    EXPECT_EQ(out, expected + "</t>");
    const EncodingResult bad = XmlHelper::toUTF8(euc + "\xFF</t>", out);
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.errorOffset, euc.size());
    // A surrogate pair across the first step boundary of the text after the mark.
    ASSERT_TRUE(XmlHelper::toUTF8(utf16(u"<a>" + std::u16string(32764, u'x') + u"\U0001F600</a>", true, true), out).ok);
    EXPECT_EQ(out, "<a>" + std::string(32764, 'x') + "\xF0\x9F\x98\x80</a>");
}

TEST(FromUtf8, ReferencesWhatTheEncodingCannotHold)
{
    struct Case { std::string encoding, input, expected; };
    const Case cases[] = {
        {"US-ASCII", "<a>\xC3\xA9\xF0\x9F\x98\x80</a>", "<a>&#xE9;&#x1F600;</a>"},
        {"EUC-JP", "<t>\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80</t>", "<t>\xC6\xFC\xCB\xDC &#x1F600;</t>"},
        {"UTF-16BE", "<a>\xC3\xA9</a>", "\0<\0a\0>\0\xE9\0<\0/\0a\0>"s},
        {"utf-8", kDecl + "<a/>", "<?xml version=\"1.0\" encoding=\"utf-8\"?><a/>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoding);
        std::string out;
        ASSERT_TRUE(XmlHelper::fromUTF8(c.input, c.encoding, out));
        EXPECT_EQ(out, c.expected);
    }
    // Unknown names, iconv suffixes and input that is not UTF-8 fail and leave nothing behind.
    for (const auto& [input, encoding] : {std::pair<const char*, const char*>{"<a/>", "x-no-such-encoding"},
                                          {"<a/>", "ISO-8859-1//TRANSLIT"}, {"<a>\xFF</a>", "ISO-8859-1"}}) {
        std::string out = "stale";
        EXPECT_FALSE(XmlHelper::fromUTF8(input, encoding, out)) << encoding;
        EXPECT_TRUE(out.empty()) << encoding;
    }
}

TEST(XmlNames, NameAndQName)
{
    struct Case { std::string name; bool isName, isQName; };
    const Case cases[] = {
        {"_x.y-z", true, true},       {"p:local", true, true},     {":a", true, false},
        {"a:", true, false},          {"a:b:c", true, false},      {"1a", false, false},
        {"-a", false, false},         {"", false, false},          {"a b", false, false},
        {"a\0b"s, false, false},      {"caf\xC3\xA9", true, true}, {"caf\xE9", false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(XmlHelper::isXmlName(c.name), c.isName) << c.name;
        EXPECT_EQ(XmlHelper::isQName(c.name), c.isQName) << c.name;
    }
}

TEST(Version, RunTimeMatchesTheHeader)
{
    EXPECT_STREQ(tarn::versionString(), TARNXML_VERSION_STRING);
    EXPECT_EQ(tarn::versionNumber(), TARNXML_VERSION_NUMBER);
}

} // namespace
