// The stand-ins for the product's libraries: conversions, words, filters, encoders, reports.
#include <gtest/gtest.h>

#include <climits>
#include <locale>

#include "TestSupport.h"
#include "tarn/crypto.h"
#include "tarn/logger.h"
#include "tarn/shared.h"

namespace {

struct IntCase {
    const char* text;
    long long int32;
    unsigned long long uint32;
    long long int64;
    unsigned long long uint64;
};

TEST(Conversions, IntegersFromText)
{
    const IntCase cases[] = {
        {"", 0, 0, 0, 0},
        {"0", 0, 0, 0, 0},
        {"42", 42, 42, 42, 42},
        {"  7", 7, 7, 7, 7},
        {"+9", 9, 9, 9, 9},
        {"-5", -5, 0, -5, 0},
        {"12abc", 12, 12, 12, 12},
        {"abc", 0, 0, 0, 0},
        {"2147483647", INT_MAX, 2147483647u, 2147483647, 2147483647},
        {"-2147483648", INT_MIN, 0, -2147483648LL, 0},
        {"2147483648", 0, 2147483648u, 2147483648LL, 2147483648ULL},
        {"4294967296", 0, 0, 4294967296LL, 4294967296ULL},
        {"18446744073709551615", 0, 0, 0, ULLONG_MAX},
        {"99999999999999999999999", 0, 0, 0, 0},
        {"0x10", 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tarn::ToInt32(c.text), c.int32);
        EXPECT_EQ(tarn::ToUInt32(c.text), c.uint32);
        EXPECT_EQ(tarn::ToInt64(c.text), c.int64);
        EXPECT_EQ(tarn::ToUInt64(c.text), c.uint64);
    }
    EXPECT_EQ(tarn::ToInt32(nullptr), 0);
    EXPECT_EQ(tarn::ToUINT64(nullptr), 0u);
}

TEST(Conversions, Uint64IdentifiersAcceptHex)
{
    EXPECT_EQ(tarn::ToUINT64("0x10"), 16u);
    EXPECT_EQ(tarn::ToUINT64("0XfF"), 255u);
    EXPECT_EQ(tarn::ToUINT64("123"), 123u);
    EXPECT_EQ(tarn::ToUINT64("0xFFFFFFFFFFFFFFFF"), ULLONG_MAX);
    EXPECT_EQ(tarn::ToUINT64("0x"), 0u);
}

// A locale whose decimal point is a comma, without depending on installed locales.
struct CommaPunct : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST(Conversions, DoublesIgnoreTheGlobalLocale)
{
    const std::locale comma(std::locale::classic(), new CommaPunct);
    const std::locale previous = std::locale::global(comma);
    EXPECT_EQ(tarn::ToString(0.5, 6, std::locale::classic()), "0.5");
    EXPECT_EQ(tarn::ToString(3.14159265, 6, std::locale::classic()), "3.14159");
    EXPECT_EQ(tarn::ToString(1e6, 6, std::locale::classic()), "1e+06");
    EXPECT_EQ(tarn::ToString(-2.0, 6, std::locale::classic()), "-2");
    EXPECT_DOUBLE_EQ(tarn::ToDouble("1.5", std::locale::classic()), 1.5);
    EXPECT_DOUBLE_EQ(tarn::ToDouble("1,5", comma), 1.5);
    EXPECT_EQ(tarn::ToString(0.5, 6, comma), "0,5");
    std::locale::global(previous);

    EXPECT_DOUBLE_EQ(tarn::ToDouble("", std::locale::classic()), 0.0);
    EXPECT_DOUBLE_EQ(tarn::ToDouble("x", std::locale::classic()), 0.0);
    EXPECT_DOUBLE_EQ(tarn::ToDouble(" +2.5e1z", std::locale::classic()), 25.0);
    EXPECT_DOUBLE_EQ(tarn::ToDouble(nullptr, std::locale::classic()), 0.0);
}

TEST(Conversions, BooleanWords)
{
    EXPECT_EQ(&tarn::ToString(true), &TRUE_STRING);
    EXPECT_EQ(&tarn::ToString(false), &FALSE_STRING);
    EXPECT_TRUE(EMPTY_STRING.empty());
}

TEST(ReplaceNonprintable, ControlsOnly)
{
    std::string text = "a\x01" "b\tc\nd\re\x7f" "f\xc3\xa9\x1f";
    replace_nonprintable(text, "?", false);
    EXPECT_EQ(text, "a?b\tc\nd\re?f\xc3\xa9?");
    std::string whitespace = "a\tb\nc\r";
    replace_nonprintable(whitespace, "?", true);
    EXPECT_EQ(whitespace, "a?b?c?");
    std::string nul("x\0y", 3);
    replace_nonprintable(nul, "?", false);
    EXPECT_EQ(nul, "x?y");
}

TEST(Crypto, Base64KnownVectors)
{
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
        {std::string("\0\xff", 2), "AP8="},
    };
    for (const auto& [in, out] : vectors) {
        boost::system::error_code error;
        EXPECT_EQ(tarn::crypto::base64Encode(reinterpret_cast<const unsigned char*>(in.data()),
                                             static_cast<unsigned>(in.size()), false, error),
                  out);
        EXPECT_FALSE(error);
    }
}

TEST(Crypto, Base64LineBreaksAndBadInput)
{
    const std::string bytes(120, 'x');
    boost::system::error_code error;
    const std::string wrapped = tarn::crypto::base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                                           120, true, error);
    ASSERT_EQ(wrapped.size(), 160u + 2u);
    EXPECT_EQ(wrapped[76], '\n');
    EXPECT_EQ(wrapped[153], '\n');
    EXPECT_EQ(tarn::crypto::base64Encode(nullptr, 3, false, error), "");
    EXPECT_TRUE(error);
}

TEST(Crypto, Hex)
{
    const unsigned char bytes[] = {0x00, 0x1f, 0xab, 0xff};
    boost::system::error_code error;
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 4, true, error), "001FABFF");
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 4, false, error), "001fabff");
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 0, true, error), "");
    EXPECT_FALSE(error);
    EXPECT_EQ(tarn::crypto::hexEncode(nullptr, 2, true, error), "");
    EXPECT_TRUE(error);
}

TEST(Diagnostics, StackTraceCapturesFrames)
{
    const tarn::StackTrace stack;
    EXPECT_FALSE(stack.frames().empty());
    EXPECT_NE(stack.toString().find("#0"), std::string::npos);
}

TEST(Diagnostics, AssertWriteGoesThroughLog4cplusOnceLoggingIsSetUp)
{
    tarntest::LogCapture capture;
    tarn::AssertWrite("../tarnshared/xml/XmlNode", 975, tarn::StackTrace());
    const auto reports = capture.assertions();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].file, "../tarnshared/xml/XmlNode");
    EXPECT_EQ(reports[0].line, 975);
    EXPECT_EQ(reports[0].level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_NE(reports[0].message.find("../tarnshared/xml/XmlNode:975"), std::string::npos);
    EXPECT_NE(tarn::Logger::hasBeenInitialized, 0);
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

TEST(Diagnostics, LoggerInitializeIsIdempotent)
{
    tarn::Logger::initialize();
    tarn::Logger::initialize();
    EXPECT_EQ(tarn::Logger::hasBeenInitialized, 1);
}

} // namespace
