// The stand-ins for the product's libraries: conversions, words, filters, encoders, reports.
#include <gtest/gtest.h>

#include <climits>
#include <locale>
#include <tuple>

#include "TestSupport.h"
#include "tarn/crypto.h"
#include "tarn/logger.h"
#include "tarn/shared.h"

using namespace std::string_literals;

namespace {

TEST(Conversions, IntegersFromText)
{
    // text, ToInt32, ToUInt32, ToInt64, ToUInt64 (and ToUINT64)
    const std::tuple<const char*, long long, unsigned long long, long long, unsigned long long> cases[] = {
        {"", 0, 0, 0, 0}, {"0", 0, 0, 0, 0}, {"42", 42, 42, 42, 42}, {"  7", 7, 7, 7, 7}, {"+9", 9, 9, 9, 9},
        {"-5", -5, 0, -5, 0}, {"12abc", 12, 12, 12, 12}, {"abc", 0, 0, 0, 0},
        {"2147483647", INT_MAX, 2147483647u, 2147483647, 2147483647},
        {"-2147483648", INT_MIN, 0, -2147483648LL, 0},
        {"2147483648", 0, 2147483648u, 2147483648LL, 2147483648ULL},
        {"4294967296", 0, 0, 4294967296LL, 4294967296ULL},
        {"18446744073709551615", 0, 0, 0, ULLONG_MAX}, {"99999999999999999999999", 0, 0, 0, 0},
    };
    for (const auto& [text, int32, uint32, int64, uint64] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(tarn::ToInt32(text), int32);
        EXPECT_EQ(tarn::ToUInt32(text), uint32);
        EXPECT_EQ(tarn::ToInt64(text), int64);
        EXPECT_EQ(tarn::ToUInt64(text), uint64);
        EXPECT_EQ(tarn::ToUINT64(text), uint64);
    }
    // Identifiers also take hex; the other conversions stop at the "x".
    EXPECT_EQ(tarn::ToInt32("0x10"), 0);
    EXPECT_EQ(tarn::ToUInt64("0x10"), 0u);
    for (const auto& [text, value] : {std::pair<const char*, unsigned long long>{"0x10", 16}, {"0XfF", 255},
                                      {"0xFFFFFFFFFFFFFFFF", ULLONG_MAX}, {"0x", 0}, {nullptr, 0}})
        EXPECT_EQ(tarn::ToUINT64(text), value) << (text ? text : "null");
    EXPECT_EQ(tarn::ToInt32(nullptr), 0);
}

// A locale whose decimal point is a comma, without depending on installed locales.
struct CommaPunct : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST(Conversions, DoublesIgnoreTheGlobalLocale)
{
    const std::locale comma(std::locale::classic(), new CommaPunct);
    const std::locale classic = std::locale::classic(), previous = std::locale::global(comma);
    EXPECT_EQ(tarn::ToString(0.5, 6, classic), "0.5");
    EXPECT_EQ(tarn::ToString(3.14159265, 6, classic), "3.14159");
    EXPECT_EQ(tarn::ToString(1e6, 6, classic), "1e+06");
    EXPECT_EQ(tarn::ToString(-2.0, 6, classic), "-2");
    EXPECT_EQ(tarn::ToString(0.5, 6, comma), "0,5");
    EXPECT_DOUBLE_EQ(tarn::ToDouble("1.5", classic), 1.5);
    EXPECT_DOUBLE_EQ(tarn::ToDouble("1,5", comma), 1.5);
    EXPECT_DOUBLE_EQ(tarn::ToDouble(" +2.5e1z", classic), 25.0);
    EXPECT_DOUBLE_EQ(tarn::ToDouble("x", classic) + tarn::ToDouble("", classic) + tarn::ToDouble(nullptr, classic), 0.0);
    std::locale::global(previous);
    // The words are the shared constants themselves.
    EXPECT_EQ(&tarn::ToString(true), &TRUE_STRING);
    EXPECT_EQ(&tarn::ToString(false), &FALSE_STRING);
}

TEST(ReplaceNonprintable, ControlsAndOptionallyWhitespace)
{
    std::string text = "a\x01" "b\tc\nd\re\x7f" "f\xc3\xa9\x1f\0y"s;
    replace_nonprintable(text, "?", false);
    EXPECT_EQ(text, "a?b\tc\nd\re?f\xc3\xa9??y");
    std::string whitespace = "a\tb\nc\r";
    replace_nonprintable(whitespace, "?", true);
    EXPECT_EQ(whitespace, "a?b?c?");
}

TEST(Crypto, KnownVectorsAndBadInput)
{
    boost::system::error_code error;
    const auto base64 = [&](const std::string& in, bool lines) {
        return tarn::crypto::base64Encode(reinterpret_cast<const unsigned char*>(in.data()),
                                          static_cast<unsigned>(in.size()), lines, error);
    };
    for (const auto& [in, out] : {std::pair<std::string, std::string>{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="},
                                  {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                  {"foobar", "Zm9vYmFy"}, {"\0\xff"s, "AP8="}})
        EXPECT_EQ(base64(in, false), out);
    const std::string wrapped = base64(std::string(120, 'x'), true);
    ASSERT_EQ(wrapped.size(), 160u + 2u);
    EXPECT_EQ(wrapped[76], '\n');
    EXPECT_EQ(wrapped[153], '\n');
    const unsigned char bytes[] = {0x00, 0x1f, 0xab, 0xff};
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 4, true, error), "001FABFF");
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 4, false, error), "001fabff");
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 0, true, error), "");
    EXPECT_FALSE(error);
    EXPECT_EQ(tarn::crypto::base64Encode(nullptr, 3, false, error), "");
    EXPECT_TRUE(error);
    error.clear();
    EXPECT_EQ(tarn::crypto::hexEncode(nullptr, 2, true, error), "");
    EXPECT_TRUE(error);
}

TEST(Diagnostics, AssertWriteGoesThroughLog4cplusOnceLoggingIsSetUp)
{
    const tarn::StackTrace stack;
    EXPECT_FALSE(stack.frames().empty());
    EXPECT_NE(stack.toString().find("#0"), std::string::npos);
    tarntest::LogCapture capture;
    tarn::Logger::initialize(); // a second set-up changes nothing
    EXPECT_EQ(tarn::Logger::hasBeenInitialized, 1);
    tarn::AssertWrite("../tarnshared/xml/XmlNode", 975, stack);
    const auto reports = capture.assertions();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].file, "../tarnshared/xml/XmlNode");
    EXPECT_EQ(reports[0].line, 975);
    EXPECT_EQ(reports[0].level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_NE(reports[0].message.find("../tarnshared/xml/XmlNode:975"), std::string::npos);
}

TEST(DiagnosticsDeathTest, AssertWriteBeforeLoggingGoesToStandardError)
{
    // "threadsafe" re-executes the test binary for the child, so logging is not set up there.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (!tarn::Logger::hasBeenInitialized)
                tarn::AssertWrite("some/file", 12, tarn::StackTrace());
            std::exit(tarn::Logger::hasBeenInitialized ? 3 : 0);
        },
        ::testing::ExitedWithCode(0), "assertion failed at some/file:12");
}

} // namespace
