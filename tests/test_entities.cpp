// XmlHelper::XmlEncode / XmlHelper::XmlDecode: fixed tables, then properties over random text.
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <utf8.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <random>

namespace {

using namespace std::string_literals; // "..."s keeps the zero bytes inside a literal
using std::string;
using namespace XmlHelper;

TEST(XmlEntities, EncodeAndDecodeTables)
{
    const std::pair<string, string> encodes[] = {
        {"", ""}, {"a<b & 'c'", "a&lt;b &amp; &apos;c&apos;"}, {"x\">y", "x&quot;&gt;y"}, {" ~!}", " ~!}"},
        {"\xC3\xA9", "&#xE9;"}, {"\xF0\x9F\x98\x80", "&#x1F600;"}, {"\xE4\xB8\xAD<", "&#x4E2D;&lt;"},
        {"x\ty\n\r", "x&#x9;y&#xA;&#xD;"}, {"\x7F\x01\x1F", "&#x7F;&#x1;&#x1F;"},
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF", "&#x80;&#x7FF;&#x800;&#xFFFF;&#x10FFFF;"},
        // A sequence cut off by the end is dropped; a zero byte ends the text.
        {"ab\xC3", "ab"}, {"a&\xF0\x9F\x98", "a&amp;"}, {"\xC3", ""}, {"<\0<"s, "&lt;"}, {"\xC3\xA9\0\xFF"s, "&#xE9;"},
    };
    for (const auto& [input, expected] : encodes)
        EXPECT_EQ(XmlEncode(input) + "|" + XmlEncode(input.c_str()), expected + "|" + expected) << input;
    const string nul = "\0"s, bad = "\xEF\xBF\xBD";
    const std::pair<string, string> decodes[] = {
        {"", ""}, {"plain text", "plain text"}, {"&lt;a&gt; &amp;amp;", "<a> &amp;"}, {"&apos;&quot;", "'\""},
        {"&#65;&#x42;&#x1F600;", "AB\xF0\x9F\x98\x80"}, {"&#x10FFFF;&#xFFFF;", "\xF4\x8F\xBF\xBF\xEF\xBF\xBF"},
        {"&#xD800;", bad}, {"&#xDFFF;", bad}, {"&#x110000;", bad}, {"&#99999999999;", bad}, {"&#X41;", nul},
        {"&#;", nul}, {"&#x;", nul}, {"&#65", "&#65"}, {"&#65 and; more", "A more"}, {"&", "&"}, {"&#", "&#"},
        {"AT&T, &unknown;, &AMP;", "AT&T, &unknown;, &AMP;"}, {"&lt", "&lt"}, {"a\0&lt;"s, "a"}, {"&#65\0;"s, "&#65"},
        // A single pass: what a replacement produced is not looked at again.
        {"&amp;lt;", "&lt;"}, {"&#38;#65;", "&#65;"},
        // Numbers are read as strtoul reads them into 32 bits (the rules in detail: test_helper_limits);
        // here only what a 64-bit reading would get wrong: a value that wraps to "A" modulo 2^64.
        {"&#18446744073709551681;", bad},
        // The ";" ending a reference is the first one after the "&".
        {"&#1&#2;x", "\x01x"}, {"&#65;x&#66", "Ax&#66"}, {"&#&#65;", nul}, {"a&b&#66;c", "a&bBc"},
    };
    for (const auto& [input, expected] : decodes)
        EXPECT_EQ(XmlDecode(input) + "|" + XmlDecode(input.c_str()), expected + "|" + expected) << input;
    EXPECT_EQ(XmlEncode(static_cast<const char*>(nullptr)) + XmlDecode(static_cast<const char*>(nullptr)), "");
    // Every character expands: the output outgrows the first buffer guess many times over.
    string in, out;
    for (int i = 0; i < 30000; ++i)
        in += "'a\xF0\x9F\x98\x80\x01", out += "&apos;a&#x1F600;&#x1;";
    EXPECT_EQ(XmlEncode(in), out);
    // utf8cpp's errors reach the caller (its rules are its own). A zero byte inside a sequence is a
    // broken sequence, not the end of the text.
    for (const string& s : {"\xFF"s, "ab\x80"s, "\xC0\x80"s, "\xC3\x41"s, "\xC3\0a"s})
        EXPECT_THROW(XmlEncode(s), utf8::invalid_utf8) << s;
    for (const char* s : {"\xED\xA0\x80", "\xF4\x90\x80\x80"})
        EXPECT_THROW(XmlEncode(s), utf8::invalid_code_point) << s;
}

// --- Properties over random text ---------------------------------------------------------------------

// Up to `maxChars` random code points, surrogates excluded, markup and control characters weighted
// up. With `xmlChars` only characters XML 1.0 allows even as references.
string randomText(std::mt19937& rng, std::uint32_t maxChars, bool xmlChars)
{
    static const std::uint32_t low[] = {0, 1, 0x7F, 0x20, 0x20, 0x80, 0x800, 0x10000},
                               span[] = {1, 0x1F, 1, 0x5F, 0x5F, 0x780, 0xF800, 0x100000};
    string out;
    for (std::uint32_t n = rng() % (maxChars + 1); n > 0;) {
        const std::uint32_t k = rng() % 8;
        const std::uint32_t cp = k == 0 ? std::uint32_t("&<>'\""[rng() % 5]) : low[k] + rng() % span[k];
        const bool notXml = (cp < 0x20 && cp != 0x9 && cp != 0xA && cp != 0xD) || cp == 0xFFFE || cp == 0xFFFF;
        if (!(cp >= 0xD800 && cp <= 0xDFFF) && !(xmlChars && notXml))
            utf8::append(cp, std::back_inserter(out)), --n;
    }
    return out;
}

TEST(XmlEntityProperties, DecodingUndoesEncodingAndOutputIsPrintableAscii)
{
    std::mt19937 rng(20261122);
    for (int i = 0; i < 100000; ++i) {
        const string input = randomText(rng, 24, false), encoded = XmlEncode(input);
        const bool printable = std::all_of(encoded.begin(), encoded.end(), [](char c) { return c >= ' ' && c <= '~'; });
        ASSERT_TRUE(printable && XmlDecode(encoded) == input) << input << " -> " << encoded;
    }
}

// Encoded text parsed by libxml2 as <a x=QencodedQ>encoded</a> gives the input back in the attribute
// and in the text.
TEST(XmlEntityProperties, EncodedTextParsesBackInBothQuoteKinds)
{
    std::mt19937 rng(777);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        const string input = randomText(rng, 16, true), encoded = XmlEncode(input);
        for (const string quote : {"\"", "'"}) {
            const string doc = "<a x=" + quote + encoded + quote + ">" + encoded + "</a>";
            std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> parsed(
                xmlReadMemory(doc.data(), int(doc.size()), nullptr, nullptr, XML_PARSE_NONET), &xmlFreeDoc);
            xmlNode* root = xmlDocGetRootElement(parsed.get());
            ASSERT_NE(root, nullptr) << doc;
            for (xmlChar* value : {xmlGetProp(root, reinterpret_cast<const xmlChar*>("x")), xmlNodeGetContent(root)}) {
                EXPECT_TRUE(value && reinterpret_cast<const char*>(value) == input) << doc;
                xmlFree(value);
            }
        }
    }
}

TEST(XmlEntityProperties, DecodingNeverThrowsNorGrows)
{
    // Random bytes, with the bytes that drive the reference parser weighted up.
    static const char kInteresting[] = "&#x;0123456789abcdefABCDEFX-+ \tlgtampsqu";
    std::mt19937 rng(4242);
    for (int i = 0; i < 200000; ++i) {
        string input, decoded;
        for (auto n = rng() % 41; n > 0; --n)
            input.push_back(rng() % 256 < 160 ? kInteresting[rng() % (sizeof kInteresting - 1)] : char(rng()));
        ASSERT_NO_THROW(decoded = XmlDecode(input)) << input;
        ASSERT_LE(decoded.size(), input.size()) << input;
    }
}

} // namespace
