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
    _xmlDoc* const first = tarn::g_tempDoc;
    tarn::libXMLStartup();
    ASSERT_TRUE(first != nullptr && tarn::g_tempDoc == first);
    EXPECT_EQ(std::make_tuple(std::string(reinterpret_cast<const char*>(first->version)),
                              std::string(reinterpret_cast<const char*>(first->encoding)), first->children),
              std::make_tuple("1.0", "utf-8", nullptr));
}

TEST(LifecycleDeathTest, ExplicitShutdownThenExitRunsTheCleanupTwiceWithoutHarm)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The exit-time shutdown runs a second time.
    EXPECT_EXIT({ tarn::libXMLStartup(); tarn::libXMLShutdown(); std::exit(0); }, ::testing::ExitedWithCode(0), "");
}

TEST(LogRecord, WrittenOnlyWhenTheLevelIsEnabled)
{
    for (const log4cplus::LogLevel level : {log4cplus::DEBUG_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL}) {
        tarntest::LogCapture capture(level);
        TARN_LOG_RECORD(log4cplus::Logger::getRoot(), log4cplus::TRACE_LOG_LEVEL, "../tarnshared/xml/XmlNode", 1153, "f()",
                        "name %s is %d", "n", 7);
        ASSERT_EQ(capture.records().size(), level == log4cplus::TRACE_LOG_LEVEL ? 1u : 0u);
        for (const tarntest::LogRecord& record : capture.records())
            EXPECT_EQ(std::tie(record.message, record.file, record.line, record.function, record.level),
                      std::make_tuple("name n is 7", "../tarnshared/xml/XmlNode", 1153, "f()", log4cplus::TRACE_LOG_LEVEL));
    }
}

TEST(ValueText, NumbersCaseAndBooleans)
{
    using tarn::detail::decimalText;
    EXPECT_EQ(decimalText(0) + " " + decimalText(-5) + " " + decimalText(INT_MIN) + " " + decimalText(UINT_MAX) + " " +
                  decimalText(LLONG_MIN) + " " + decimalText(ULLONG_MAX) + " " + tarn::detail::doubleText(1.0 / 3),
              "0 -5 -2147483648 4294967295 -9223372036854775808 18446744073709551615 0.333333");
    // Bytes from 0x80 up are left alone, as in the "C" locale.
    EXPECT_EQ(ToLower("HeLLo 123 \xc3\x89T\xc3\x89"), "hello 123 \xc3\x89t\xc3\x89");
    // text, node text rule, attribute and child rule, reader rule
    const std::tuple<const char*, bool, bool, bool> cases[] = {
        {"true", true, true, true},  {"TRUE", true, true, true},   {"tRuE", true, true, true},    {"1", true, true, true},
        {"Y", true, false, false},   {"-1", true, false, false},   {"y", false, false, false},    {"N", false, false, false},
        {"0", false, false, false},  {"false", false, false, false}, {"yes", false, false, false}, {"", false, false, false},
        {" true", false, false, false}, {"true ", false, false, false}, {"01", false, false, false}, {"2", false, false, false},
        {"tru\xc3\xa9", false, false, false}};
    for (const auto& [text, node, attribute, reader] : cases)
        EXPECT_EQ(std::make_tuple(tarn::detail::nodeTextBool(text), tarn::detail::attributeBool(text), tarn::detail::readerBool(text)),
                  std::make_tuple(node, attribute, reader)) << text;
}

} // namespace
