// The stand-ins for the product's libraries: conversions, words, filters, encoders, reports.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <filesystem>
#include <locale>
#include <tuple>

#include "TestSupport.h"
#include "tarn/crypto.h"
#include "tarn/logger.h"
#include "tarn/shared.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

using namespace std::string_literals;

namespace {

TEST(Conversions, IntegersFromText)
{
    // text, ToInt32, ToUInt32, ToInt64, ToUInt64, ToUINT64 (identifiers: also hex)
    const std::tuple<const char*, long long, unsigned long long, long long, unsigned long long, unsigned long long> cases[] = {
        {"", 0, 0, 0, 0, 0}, {nullptr, 0, 0, 0, 0, 0}, {"42", 42, 42, 42, 42, 42}, {"  7", 7, 7, 7, 7, 7}, {"+9", 9, 9, 9, 9, 9},
        {"-5", -5, 0, -5, 0, 0}, {"12abc", 12, 12, 12, 12, 12}, {"abc", 0, 0, 0, 0, 0},
        {"2147483647", INT_MAX, 2147483647u, 2147483647, 2147483647, 2147483647},
        {"-2147483648", INT_MIN, 0, -2147483648LL, 0, 0}, {"2147483648", 0, 2147483648u, 2147483648LL, 2147483648ULL, 2147483648ULL},
        {"4294967296", 0, 0, 4294967296LL, 4294967296ULL, 4294967296ULL},
        {"18446744073709551615", 0, 0, 0, ULLONG_MAX, ULLONG_MAX}, {"99999999999999999999999", 0, 0, 0, 0, 0},
        {"0x10", 0, 0, 0, 0, 16}, {"0XfF", 0, 0, 0, 0, 255}, {"0xFFFFFFFFFFFFFFFF", 0, 0, 0, 0, ULLONG_MAX}, {"0x", 0, 0, 0, 0, 0}};
    for (const auto& [text, int32, uint32, int64, uint64, id] : cases) {
        SCOPED_TRACE(text ? text : "null");
        EXPECT_EQ(std::make_tuple(tarn::ToInt32(text), tarn::ToUInt32(text), tarn::ToInt64(text), tarn::ToUInt64(text),
                                  tarn::ToUINT64(text)), std::make_tuple(int32, uint32, int64, uint64, id));
    }
}

// A locale whose decimal point is a comma, without depending on installed locales.
struct CommaPunct : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST(Conversions, DoublesAndWordsIgnoreTheGlobalLocale)
{
    const std::locale classic = std::locale::classic(), previous = std::locale::global(std::locale(classic, new CommaPunct));
    EXPECT_EQ(tarn::ToString(0.5, 6, classic) + " " + tarn::ToString(3.14159265, 6, classic) + " " +
              tarn::ToString(1e6, 6, classic) + " " + tarn::ToString(-2.0, 6, classic), "0.5 3.14159 1e+06 -2");
    EXPECT_DOUBLE_EQ(tarn::ToDouble("1.5", classic), 1.5);
    EXPECT_DOUBLE_EQ(tarn::ToDouble(" +2.5e1z", classic), 25.0);
    EXPECT_DOUBLE_EQ(tarn::ToDouble("x", classic) + tarn::ToDouble("", classic) + tarn::ToDouble(nullptr, classic), 0.0);
    std::locale::global(previous);
    // The words are the shared constants themselves.
    EXPECT_TRUE(&tarn::ToString(true) == &TRUE_STRING && &tarn::ToString(false) == &FALSE_STRING);
}

TEST(ReplaceNonprintable, ControlsAndOptionallyWhitespace)
{
    std::string text = "a\x01" "b\tc\nd\re\x7f" "f\xc3\xa9\x1f\0y"s, whitespace = "a\tb\nc\r";
    replace_nonprintable(text, "?", false);
    replace_nonprintable(whitespace, "?", true);
    EXPECT_EQ(text + whitespace, "a?b\tc\nd\re?f\xc3\xa9??ya?b?c?");
}

// The writer's encoders: unwrapped base64 and upper-case hex of non-empty data (it checks null and
// empty data itself and ignores the error code).
TEST(Crypto, KnownVectors)
{
    boost::system::error_code error;
    for (const auto& [in, out] : {std::pair<std::string, std::string>{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="},
                                  {"foobar", "Zm9vYmFy"}, {"\0\xff"s, "AP8="}})
        EXPECT_EQ(tarn::crypto::base64Encode(reinterpret_cast<const unsigned char*>(in.data()),
                                             static_cast<unsigned>(in.size()), false, error), out);
    const unsigned char bytes[] = {0x00, 0x1f, 0xab, 0xff};
    EXPECT_EQ(tarn::crypto::hexEncode(bytes, 4, true, error), "001FABFF");
}

TEST(Diagnostics, AssertWriteGoesThroughLog4cplusOnceLoggingIsSetUp)
{
    const tarn::StackTrace stack;
    EXPECT_TRUE(!stack.frames().empty() && stack.toString().find("#0") != std::string::npos);
    tarntest::LogCapture capture;
    tarn::Logger::initialize(); // a second set-up changes nothing: the report still reaches the capture
    tarn::AssertWrite("../tarnshared/xml/XmlNode", 975, stack);
    const auto reports = capture.assertions();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(std::tie(reports[0].file, reports[0].line, reports[0].level),
              std::make_tuple("../tarnshared/xml/XmlNode", 975, log4cplus::ERROR_LOG_LEVEL));
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

// A process that loaded the library and logged, then forks without exec: the child exits and
// the parent's wait returns. The child's exit used to hang in log4cplus's clean-up, waiting for
// the worker threads of a pool that fork does not copy; no such thread runs any more.
TEST(Fork, ChildOfALoggingProcessExits)
{
    {
        const tarntest::LogCapture capture;
        const tarn::XmlDocumentPtr document = tarn::CreateXmlDocument("<r/>");
        ASSERT_TRUE(document);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        document->GetRoot()->AddChild("a", "logged");
#pragma GCC diagnostic pop
        EXPECT_EQ(capture.records().size(), 1u);
    }
#if !defined(__SANITIZE_THREAD__) // ThreadSanitizer runs a thread of its own
    // So do user-mode emulators (quick runs): the count only means something natively.
    const auto threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                       std::filesystem::directory_iterator());
    if (!tarntest::quick()) {
        EXPECT_EQ(threads, 1);
    }
#endif
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0)
        std::exit(0); // static destructors and atexit handlers run, log4cplus's included
    int status = 0;
    pid_t waited = 0;
    for (int i = 0; i < 300 && waited == 0; ++i) {
        waited = ::waitpid(child, &status, WNOHANG);
        if (waited == 0)
            ::usleep(100 * 1000);
    }
    if (waited == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
    }
    EXPECT_EQ(waited, child) << "the child did not exit within 30 s";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

} // namespace
