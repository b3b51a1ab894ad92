// The library frame: start-up and shared state, the log record, the value text rules.
#include <gtest/gtest.h>

#include <climits>
#include <tuple>

#include <libxml/tree.h>

#include "Diagnostics.h"
#include "TestSupport.h"
#include "ValueText.h"
#include "tarnxml/XmlHelper.h"

namespace {

TEST(Lifecycle, StartupCreatesTheScratchDocumentOnce)
{
    tarn::libXMLStartup();
    _xmlDoc* first = tarn::g_tempDoc;
    ASSERT_NE(first, nullptr);
    tarn::libXMLStartup();
    EXPECT_EQ(tarn::g_tempDoc, first);
    EXPECT_STREQ(reinterpret_cast<const char*>(first->version), "1.0");
    EXPECT_STREQ(reinterpret_cast<const char*>(first->encoding), "utf-8");
    EXPECT_EQ(first->children, nullptr);
}

TEST(LifecycleDeathTest, ExplicitShutdownThenExitRunsTheCleanupTwiceWithoutHarm)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            tarn::libXMLStartup();
            tarn::libXMLShutdown();
            std::exit(0); // the exit-time shutdown runs a second time
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(LogRecord, WrittenOnlyWhenTheLevelIsEnabled)
{
    const log4cplus::Logger root = log4cplus::Logger::getRoot();
    for (const log4cplus::LogLevel level : {log4cplus::DEBUG_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL}) {
        tarntest::LogCapture capture(level);
        TARN_LOG_RECORD(root, log4cplus::TRACE_LOG_LEVEL, "../tarnshared/xml/XmlNode", 1153, "f()", "name %s is %d", "n", 7);
        EXPECT_NE(tarn::Logger::hasBeenInitialized, 0);
        ASSERT_EQ(capture.records().size(), level == log4cplus::TRACE_LOG_LEVEL ? 1u : 0u);
        for (const tarntest::LogRecord& record : capture.records()) {
            EXPECT_EQ(std::tie(record.message, record.file, record.line, record.function, record.level),
                      std::make_tuple("name n is 7", "../tarnshared/xml/XmlNode", 1153, "f()", log4cplus::TRACE_LOG_LEVEL));
        }
    }
}

TEST(ValueText, DecimalTextAndToLower)
{
    using tarn::detail::decimalText;
    EXPECT_EQ(decimalText(0) + " " + decimalText(-5) + " " + decimalText(INT_MIN) + " " + decimalText(UINT_MAX),
              "0 -5 -2147483648 4294967295");
    EXPECT_EQ(decimalText(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(decimalText(ULLONG_MAX), "18446744073709551615");
    EXPECT_EQ(tarn::detail::doubleText(0.5), "0.5");
    EXPECT_EQ(ToLower("HeLLo 123"), "hello 123");
    EXPECT_EQ(ToLower("\xc3\x89T\xc3\x89"), "\xc3\x89t\xc3\x89"); // bytes >= 0x80 unchanged in "C"
}

TEST(ValueText, BooleanRules)
{
    // text, node text rule, attribute and child rule, reader rule
    const std::tuple<const char*, bool, bool, bool> cases[] = {
        {"true", true, true, true},     {"TRUE", true, true, true},       {"tRuE", true, true, true},
        {"1", true, true, true},        {"Y", true, false, false},        {"-1", true, false, false},
        {"y", false, false, false},     {"N", false, false, false},       {"0", false, false, false},
        {"false", false, false, false}, {"yes", false, false, false},     {"", false, false, false},
        {" true", false, false, false}, {"true ", false, false, false},   {"01", false, false, false},
        {"2", false, false, false},     {"tru\xc3\xa9", false, false, false},
    };
    for (const auto& [text, node, attribute, reader] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(tarn::detail::nodeTextBool(text), node);
        EXPECT_EQ(tarn::detail::attributeBool(text), attribute);
        EXPECT_EQ(tarn::detail::readerBool(text), reader);
    }
}

} // namespace
