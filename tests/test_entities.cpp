// XmlHelper::XmlEncode / XmlHelper::XmlDecode: fixed cases, then properties over random text.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <utf8.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "TestSupport.h"

namespace {

using std::string;

// Text written with its length, so that zero bytes inside it count.
template <std::size_t N>
string bytes(const char (&literal)[N])
{
    return string(literal, N - 1);
}

TEST(XmlEncode, FixedCases)
{
    struct Case {
        string input;
        string expected;
    };
    const Case cases[] = {
        {"", ""},
        {"a<b & 'c'", "a&lt;b &amp; &apos;c&apos;"},
        {"x\">y", "x&quot;&gt;y"},
        {"\xC3\xA9", "&#xE9;"},
        {"\xF0\x9F\x98\x80", "&#x1F600;"},
        {"x\ty\n", "x&#x9;y&#xA;"},
        {"\r", "&#xD;"},
        {"\x7F", "&#x7F;"},
        {"\x01\x1F", "&#x1;&#x1F;"},
        {" ~!}", " ~!}"},
        {"\xC2\x80\xDF\xBF", "&#x80;&#x7FF;"},
        {"\xE0\xA0\x80\xEF\xBF\xBF", "&#x800;&#xFFFF;"},
        {"\xF4\x8F\xBF\xBF", "&#x10FFFF;"},
        {"\xE4\xB8\xAD<", "&#x4E2D;&lt;"},
        // A sequence cut off by the end of the input is dropped; what came before stays.
        {"ab\xC3", "ab"},
        {"ab\xE2\x82", "ab"},
        {"a&\xF0\x9F\x98", "a&amp;"},
        {"\xC3", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("input: " + c.input);
        EXPECT_EQ(XmlHelper::XmlEncode(c.input), c.expected);
        EXPECT_EQ(XmlHelper::XmlEncode(c.input.c_str()), c.expected);
    }
    EXPECT_EQ(XmlHelper::XmlEncode(static_cast<const char*>(nullptr)), "");
}

TEST(XmlEncode, ZeroByteEndsTheText)
{
    EXPECT_EQ(XmlHelper::XmlEncode(bytes("ab\0cd")), "ab");
    EXPECT_EQ(XmlHelper::XmlEncode(bytes("\0cd")), "");
    EXPECT_EQ(XmlHelper::XmlEncode(bytes("<\0<")), "&lt;");
    EXPECT_EQ(XmlHelper::XmlEncode(bytes("\xC3\xA9\0\xFF")), "&#xE9;");
}

TEST(XmlEncode, InvalidUtf8ThrowsToTheCaller)
{
    const string invalidUtf8[] = {
        "\xFF", "ab\xFF", "\x80", "\xC0\x80", "\xE0\x80\x80", "\xC3\x41", "\xE2\x28\xA1", "\xF8\x88\x80\x80\x80",
        bytes("\xC3\0a"), // a zero byte inside a sequence is a broken sequence, not its end
    };
    for (const string& input : invalidUtf8) {
        SCOPED_TRACE("input: " + input);
        EXPECT_THROW(XmlHelper::XmlEncode(input), utf8::invalid_utf8);
    }
    const string invalidCodePoints[] = {"\xED\xA0\x80", "a\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF"};
    for (const string& input : invalidCodePoints) {
        SCOPED_TRACE("input: " + input);
        EXPECT_THROW(XmlHelper::XmlEncode(input), utf8::invalid_code_point);
        EXPECT_THROW(XmlHelper::XmlEncode(input.c_str()), utf8::invalid_code_point);
    }
}

TEST(XmlEncode, LongOutputsGrowPastTheFirstGuess)
{
    // Every character expands: the output outgrows the initial buffer many times over.
    string apostrophes(100000, '\'');
    string expected;
    for (int i = 0; i < 100000; ++i)
        expected += "&apos;";
    EXPECT_EQ(XmlHelper::XmlEncode(apostrophes), expected);

    string emoji;
    string emojiExpected;
    for (int i = 0; i < 30000; ++i) {
        emoji += "a\xF0\x9F\x98\x80\x01";
        emojiExpected += "a&#x1F600;&#x1;";
    }
    EXPECT_EQ(XmlHelper::XmlEncode(emoji), emojiExpected);
}

TEST(XmlDecode, FixedCases)
{
    struct Case {
        string input;
        string expected;
    };
    const Case cases[] = {
        {"", ""},
        {"plain text", "plain text"},
        {"&lt;a&gt; &amp;amp;", "<a> &amp;"},
        {"&apos;&quot;", "'\""},
        {"&#65;&#x42;&#x1F600;", "AB\xF0\x9F\x98\x80"},
        {"&#xD800;", "\xEF\xBF\xBD"},
        {"&#xDFFF;", "\xEF\xBF\xBD"},
        {"&#x110000;", "\xEF\xBF\xBD"},
        {"&#99999999999;", "\xEF\xBF\xBD"},
        {"&#x10FFFF;&#xFFFF;", "\xF4\x8F\xBF\xBF\xEF\xBF\xBF"},
        {"&#X41;", bytes("\0")},
        {"&#;", bytes("\0")},
        {"&#x;", bytes("\0")},
        {"&#65", "&#65"},
        {"&#65 and; more", "A more"},
        {"AT&T, &unknown;, &AMP;", "AT&T, &unknown;, &AMP;"},
        {"&", "&"},
        {"&#", "&#"},
        {"&lt", "&lt"},
        {"&amp", "&amp"},
        // A single pass: what a replacement produced is not looked at again.
        {"&amp;lt;", "&lt;"},
        {"&#38;#65;", "&#65;"},
        // Numbers are read as strtoul reads them into 32 bits.
        {"&# 65;", "A"},
        {"&#\t\n+65;", "A"},
        {"&#x0x41;", "A"},
        {"&#x0xg;", bytes("\0")},
        {"&#x-41;", "\xEF\xBF\xBD"},
        {"&#-1;", "\xEF\xBF\xBD"},
        {"&#-0;", bytes("\0")},
        {"&#-4294967231;", "A"},       // -(2^32 - 65) wraps to 65
        {"&#4294967295;", "\xEF\xBF\xBD"}, // fits in 32 bits, but no code point
        {"&#4294967361;", "\xEF\xBF\xBD"}, // 2^32 + 65: more than 32 bits
        {"&#18446744073709551681;", "\xEF\xBF\xBD"}, // 2^64 + 65
        {"&#x100000041;", "\xEF\xBF\xBD"},
        {"&#00000000000000000000000000065;", "A"},
        {"&#65abc;x", "Ax"},
        {"&#x4e2D;", "\xE4\xB8\xAD"},
        // The ";" that ends a reference is the first one after the "&", wherever it is.
        {"&#1&#2;x", "\x01x"},
        {"&#65;&#66;", "AB"},
        {"&#65;x&#66", "Ax&#66"},
        {"&#&#65;", bytes("\0")},
        {"a&b&#66;c", "a&bBc"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("input: " + c.input);
        EXPECT_EQ(XmlHelper::XmlDecode(c.input), c.expected);
        EXPECT_EQ(XmlHelper::XmlDecode(c.input.c_str()), c.expected);
    }
    EXPECT_EQ(XmlHelper::XmlDecode(static_cast<const char*>(nullptr)), "");
    // The text overload stops at a zero byte inside the text.
    EXPECT_EQ(XmlHelper::XmlDecode(bytes("a\0&lt;")), "a");
    EXPECT_EQ(XmlHelper::XmlDecode(bytes("&#65\0;")), "&#65");
}

// --- Properties over random text ---------------------------------------------------------------------

// Random valid UTF-8 without zero bytes: ASCII (controls and markup characters weighted up) and
// code points from every plane, surrogates excluded. With `xmlChars` only characters that XML 1.0
// allows, even as references (tab, line feed, carriage return, U+0020 and above, no U+FFFE/FFFF).
class TextGenerator {
public:
    explicit TextGenerator(std::uint32_t seed) : rng_(seed) {}

    std::uint32_t codePoint(bool xmlChars)
    {
        for (;;) {
            std::uint32_t cp = 0;
            switch (pick(8)) {
            case 0:
                cp = "&<>'\""[pick(5)];
                break;
            case 1:
                cp = 1 + pick(0x1F);
                break;
            case 2:
                cp = 0x7F;
                break;
            case 3:
            case 4:
                cp = 0x20 + pick(0x5F);
                break;
            case 5:
                cp = 0x80 + pick(0x800 - 0x80);
                break;
            case 6:
                cp = 0x800 + pick(0x10000 - 0x800);
                break;
            default:
                cp = 0x10000 + pick(0x110000 - 0x10000);
                break;
            }
            if (cp >= 0xD800 && cp <= 0xDFFF)
                continue;
            if (xmlChars && ((cp < 0x20 && cp != 0x9 && cp != 0xA && cp != 0xD) || cp == 0xFFFE || cp == 0xFFFF))
                continue;
            return cp;
        }
    }

    string text(std::size_t maxChars, bool xmlChars)
    {
        string out;
        const std::size_t n = pick(static_cast<std::uint32_t>(maxChars + 1));
        for (std::size_t i = 0; i < n; ++i)
            utf8::append(codePoint(xmlChars), std::back_inserter(out));
        return out;
    }

    std::uint32_t pick(std::uint32_t n) { return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(rng_); }

private:
    std::mt19937 rng_;
};

bool isPrintableAscii(const string& text)
{
    for (unsigned char c : text)
        if (c < 0x20 || c > 0x7E)
            return false;
    return true;
}

TEST(XmlEntityProperties, DecodingUndoesEncoding)
{
    TextGenerator gen(20261122);
    for (int i = 0; i < 300000; ++i) {
        const string input = gen.text(24, false);
        const string encoded = XmlHelper::XmlEncode(input);
        if (!isPrintableAscii(encoded) || XmlHelper::XmlDecode(encoded) != input) {
            ADD_FAILURE() << "input: " << input << "\nencoded: " << encoded
                          << "\ndecoded: " << XmlHelper::XmlDecode(encoded);
            return;
        }
    }
}

using DocPtr = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using XmlString = std::unique_ptr<xmlChar, void (*)(xmlChar*)>;

void freeXmlString(xmlChar* s) { xmlFree(s); }

// Parses `<a x=QencodedQ>encoded</a>` with libxml2 and checks that the attribute value and the
// element text both come back as `input`.
void expectParsesBackTo(const string& input, const string& encoded, char quote)
{
    const string doc = string("<a x=") + quote + encoded + quote + ">" + encoded + "</a>";
    DocPtr parsed(xmlReadMemory(doc.data(), static_cast<int>(doc.size()), "entities.xml", "UTF-8", XML_PARSE_NONET),
                  &xmlFreeDoc);
    ASSERT_TRUE(parsed) << doc;
    xmlNode* root = xmlDocGetRootElement(parsed.get());
    ASSERT_NE(root, nullptr);
    XmlString attribute(xmlGetProp(root, reinterpret_cast<const xmlChar*>("x")), &freeXmlString);
    XmlString content(xmlNodeGetContent(root), &freeXmlString);
    ASSERT_TRUE(attribute && content) << doc;
    EXPECT_EQ(reinterpret_cast<const char*>(attribute.get()), input) << doc;
    EXPECT_EQ(reinterpret_cast<const char*>(content.get()), input) << doc;
}

TEST(XmlEntityProperties, EncodedTextIsCharacterDataInBothQuotes)
{
    tarntest::QuietLibxml2 quiet;
    TextGenerator gen(777);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        const string input = gen.text(16, true);
        const string encoded = XmlHelper::XmlEncode(input);
        SCOPED_TRACE("input: " + input);
        expectParsesBackTo(input, encoded, '"');
        expectParsesBackTo(input, encoded, '\'');
    }
}

TEST(XmlEntityProperties, DecodingNeverThrows)
{
    // Random bytes, with the bytes that drive the reference parser weighted up.
    static const char kInteresting[] = "&#x;0123456789abcdefABCDEFX-+ \tlgtampsqu";
    std::mt19937 rng(4242);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> interesting(0, sizeof(kInteresting) - 2);
    std::uniform_int_distribution<int> length(0, 40);
    for (int i = 0; i < 300000; ++i) {
        string input;
        for (int n = length(rng); n > 0; --n)
            input.push_back(byte(rng) < 160 ? kInteresting[interesting(rng)] : static_cast<char>(byte(rng)));
        string decoded;
        ASSERT_NO_THROW(decoded = XmlHelper::XmlDecode(input)) << input;
        // Decoding never makes text longer.
        ASSERT_LE(decoded.size(), input.size()) << input;
    }
}

} // namespace
