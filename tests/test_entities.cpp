// XmlHelper::XmlEncode / XmlHelper::XmlDecode: fixed tables, then properties over random text.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <utf8.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <random>
#include <string>

#include "TestSupport.h"

namespace {

using std::string;

// Text written with its length, so that zero bytes inside it count.
template <std::size_t N>
string bytes(const char (&literal)[N]) { return string(literal, N - 1); }

struct Case { string input, expected; };

TEST(XmlEntities, EncodeTableAndInvalidUtf8)
{
    const Case cases[] = {
        {"", ""}, {"a<b & 'c'", "a&lt;b &amp; &apos;c&apos;"}, {"x\">y", "x&quot;&gt;y"}, {" ~!}", " ~!}"},
        {"\xC3\xA9", "&#xE9;"}, {"\xF0\x9F\x98\x80", "&#x1F600;"}, {"\xE4\xB8\xAD<", "&#x4E2D;&lt;"},
        {"x\ty\n\r", "x&#x9;y&#xA;&#xD;"}, {"\x7F\x01\x1F", "&#x7F;&#x1;&#x1F;"},
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF", "&#x80;&#x7FF;&#x800;&#xFFFF;&#x10FFFF;"},
        // A sequence cut off by the end is dropped; a zero byte ends the text.
        {"ab\xC3", "ab"}, {"ab\xE2\x82", "ab"}, {"a&\xF0\x9F\x98", "a&amp;"}, {"\xC3", ""},
        {bytes("<\0<"), "&lt;"}, {bytes("\xC3\xA9\0\xFF"), "&#xE9;"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("input: " + c.input);
        EXPECT_EQ(XmlHelper::XmlEncode(c.input), c.expected);
        EXPECT_EQ(XmlHelper::XmlEncode(c.input.c_str()), c.expected);
    }
    EXPECT_EQ(XmlHelper::XmlEncode(static_cast<const char*>(nullptr)), "");
    // Every character expands: the output outgrows the first buffer guess many times over.
    string in, out;
    for (int i = 0; i < 30000; ++i)
        in += "'a\xF0\x9F\x98\x80\x01", out += "&apos;a&#x1F600;&#x1;";
    EXPECT_EQ(XmlHelper::XmlEncode(in), out);
    // A zero byte inside a sequence is a broken sequence, not the end of the text.
    for (const string& s : {string("\xFF"), string("ab\x80"), string("\xC0\x80"), string("\xE0\x80\x80"),
                            string("\xC3\x41"), string("\xE2\x28\xA1"), string("\xF8\x88\x80\x80\x80"),
                            bytes("\xC3\0a")}) {
        SCOPED_TRACE(s);
        EXPECT_THROW(XmlHelper::XmlEncode(s), utf8::invalid_utf8);
    }
    for (const char* s : {"\xED\xA0\x80", "a\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF"}) {
        SCOPED_TRACE(s);
        EXPECT_THROW(XmlHelper::XmlEncode(s), utf8::invalid_code_point);
        EXPECT_THROW(XmlHelper::XmlEncode(string(s)), utf8::invalid_code_point);
    }
}

TEST(XmlEntities, DecodeTable)
{
    const string nul = bytes("\0"), bad = "\xEF\xBF\xBD";
    const Case cases[] = {
        {"", ""}, {"plain text", "plain text"}, {"&lt;a&gt; &amp;amp;", "<a> &amp;"}, {"&apos;&quot;", "'\""},
        {"&#65;&#x42;&#x1F600;", "AB\xF0\x9F\x98\x80"}, {"&#x10FFFF;&#xFFFF;", "\xF4\x8F\xBF\xBF\xEF\xBF\xBF"},
        {"&#xD800;", bad}, {"&#xDFFF;", bad}, {"&#x110000;", bad}, {"&#99999999999;", bad},
        {"&#X41;", nul}, {"&#;", nul}, {"&#x;", nul}, {"&#65", "&#65"}, {"&#65 and; more", "A more"},
        {"AT&T, &unknown;, &AMP;", "AT&T, &unknown;, &AMP;"}, {"&", "&"}, {"&#", "&#"}, {"&lt", "&lt"},
        // A single pass: what a replacement produced is not looked at again.
        {"&amp;lt;", "&lt;"}, {"&#38;#65;", "&#65;"},
        // Numbers are read as strtoul reads them into 32 bits.
        {"&# 65;", "A"}, {"&#\t\n+65;", "A"}, {"&#x0x41;", "A"}, {"&#x0xg;", nul}, {"&#x-41;", bad},
        {"&#-1;", bad}, {"&#-0;", nul}, {"&#-4294967231;", "A"}, {"&#4294967295;", bad}, {"&#4294967361;", bad},
        {"&#18446744073709551681;", bad}, {"&#x100000041;", bad}, {"&#00000000000000000000000000065;", "A"},
        {"&#65abc;x", "Ax"}, {"&#x4e2D;", "\xE4\xB8\xAD"},
        // The ";" ending a reference is the first one after the "&".
        {"&#1&#2;x", "\x01x"}, {"&#65;x&#66", "Ax&#66"}, {"&#&#65;", nul}, {"a&b&#66;c", "a&bBc"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("input: " + c.input);
        EXPECT_EQ(XmlHelper::XmlDecode(c.input), c.expected);
        EXPECT_EQ(XmlHelper::XmlDecode(c.input.c_str()), c.expected);
    }
    EXPECT_EQ(XmlHelper::XmlDecode(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(XmlHelper::XmlDecode(bytes("a\0&lt;")), "a");
    EXPECT_EQ(XmlHelper::XmlDecode(bytes("&#65\0;")), "&#65");
}

// --- Properties over random text ---------------------------------------------------------------------

// A random code point, surrogates excluded, markup and control characters weighted up. With
// `xmlChars` only characters XML 1.0 allows even as references.
std::uint32_t codePoint(std::mt19937& rng, bool xmlChars)
{
    auto pick = [&rng](std::uint32_t n) { return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(rng); };
    static const std::uint32_t low[] = {0, 1, 0x7F, 0x20, 0x20, 0x80, 0x800, 0x10000};
    static const std::uint32_t span[] = {1, 0x1F, 1, 0x5F, 0x5F, 0x780, 0xF800, 0x100000};
    for (;;) {
        const std::uint32_t k = pick(8);
        const std::uint32_t cp = k == 0 ? static_cast<unsigned char>("&<>'\""[pick(5)]) : low[k] + pick(span[k]);
        const bool notXml = (cp < 0x20 && cp != 0x9 && cp != 0xA && cp != 0xD) || cp == 0xFFFE || cp == 0xFFFF;
        if (!(cp >= 0xD800 && cp <= 0xDFFF) && !(xmlChars && notXml))
            return cp;
    }
}

string randomText(std::mt19937& rng, std::size_t maxChars, bool xmlChars)
{
    string out;
    for (auto n = std::uniform_int_distribution<std::size_t>(0, maxChars)(rng); n > 0; --n)
        utf8::append(codePoint(rng, xmlChars), std::back_inserter(out));
    return out;
}

TEST(XmlEntityProperties, DecodingUndoesEncodingAndOutputIsPrintableAscii)
{
    std::mt19937 rng(20261122);
    for (int i = 0; i < 100000; ++i) {
        const string input = randomText(rng, 24, false), encoded = XmlHelper::XmlEncode(input);
        bool printable = true;
        for (unsigned char c : encoded)
            printable = printable && c >= 0x20 && c <= 0x7E;
        if (!printable || XmlHelper::XmlDecode(encoded) != input) {
            ADD_FAILURE() << "input: " << input << "\nencoded: " << encoded;
            return;
        }
    }
}

// Parses <a x=QencodedQ>encoded</a> with libxml2: attribute and text both come back as `input`.
void expectParsesBackTo(const string& input, const string& encoded, char quote)
{
    const string doc = string("<a x=") + quote + encoded + quote + ">" + encoded + "</a>";
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> parsed(
        xmlReadMemory(doc.data(), static_cast<int>(doc.size()), "e.xml", "UTF-8", XML_PARSE_NONET), &xmlFreeDoc);
    ASSERT_TRUE(parsed) << doc;
    xmlNode* root = xmlDocGetRootElement(parsed.get());
    ASSERT_NE(root, nullptr);
    for (xmlChar* value : {xmlGetProp(root, reinterpret_cast<const xmlChar*>("x")), xmlNodeGetContent(root)}) {
        EXPECT_TRUE(value && reinterpret_cast<const char*>(value) == input) << doc;
        xmlFree(value);
    }
}

TEST(XmlEntityProperties, EncodedTextParsesBackInBothQuoteKinds)
{
    tarntest::QuietLibxml2 quiet;
    std::mt19937 rng(777);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        const string input = randomText(rng, 16, true), encoded = XmlHelper::XmlEncode(input);
        SCOPED_TRACE("input: " + input);
        expectParsesBackTo(input, encoded, '"');
        expectParsesBackTo(input, encoded, '\'');
    }
}

TEST(XmlEntityProperties, DecodingNeverThrowsNorGrows)
{
    // Random bytes, with the bytes that drive the reference parser weighted up.
    static const char kInteresting[] = "&#x;0123456789abcdefABCDEFX-+ \tlgtampsqu";
    std::mt19937 rng(4242);
    std::uniform_int_distribution<int> byte(0, 255), interesting(0, sizeof(kInteresting) - 2), length(0, 40);
    for (int i = 0; i < 200000; ++i) {
        string input, decoded;
        for (int n = length(rng); n > 0; --n)
            input.push_back(byte(rng) < 160 ? kInteresting[interesting(rng)] : static_cast<char>(byte(rng)));
        ASSERT_NO_THROW(decoded = XmlHelper::XmlDecode(input)) << input;
        ASSERT_LE(decoded.size(), input.size()) << input;
    }
}

} // namespace
