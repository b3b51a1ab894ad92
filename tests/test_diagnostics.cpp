// Parse diagnostics: what libxml2 reported for each load and each read, per parse and per thread,
// with the load options that change what it reports.
#include <gtest/gtest.h>
#include <libxml/xmlerror.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "tarnxml/XmlDiagnostics.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlDiagnostic;

std::string formatted(const tarn::XmlDiagnostics& list)
{
    std::string out;
    for (const XmlDiagnostic& d : list)
        out += std::to_string(d.level) + " " + std::to_string(d.code) + " " + tarn::FormatDiagnostic(d) + "\n";
    return out;
}

tarn::XmlLoadOptions named(const char* name)
{
    tarn::XmlLoadOptions options;
    options.sourceName = name;
    return options;
}

TEST(Diagnostics, LoadRecordsWhatLibxml2Reported)
{
    tarn::XmlLoadOptions recover = named("r.xml");
    recover.recover = true;
    tarn::XmlLoadOptions raw = named("raw.xml");
    raw.sanitize = false;
    // Depth 300: past libxml2's limit of 256 unless huge.
    std::string nested = "<d/>";
    for (int i = 0; i < 300; ++i)
        nested = "<d>" + nested + "</d>";
    tarn::XmlLoadOptions huge;
    huge.huge = true;
    const struct {
        const char* name;
        std::string text;
        tarn::XmlLoadOptions options;
        int result;
        bool repaired;
        std::string diagnostics;
    } cases[] = {
        {"clean", "<a/>", {}, 0, false, ""},
        {"mismatch", "<a>\n <b></a>", named("in.xml"), -1, false,
         "3 76 in.xml:2:9: Opening and ending tag mismatch: b line 2 and a\n"},
        {"mismatch recovered", "<a><b></a>", recover, 0, false,
         "3 76 r.xml:1:11: Opening and ending tag mismatch: b line 1 and a\n"},
        {"warning on success", "<a xmlns='rel'/>", {}, 0, false, "1 100 1:15: xmlns: URI rel is not absolute\n"},
        {"repaired by the gate", "<a>\xff</a>", {}, 0, true, ""},
        {"invalid UTF-8 unrepaired", "<a>x\xff</a>", raw, -1, false,
         "3 9 raw.xml:1:5: Input is not proper UTF-8, indicate encoding !\nBytes: 0xFF 0x3C 0x2F 0x61\n"},
        {"NUL unrepaired", std::string("<a>\n\0</a>", 9), raw, -1, false,
         "3 9 raw.xml:2:1: Char 0x0 out of allowed range\n"},
        {"empty", "", {}, -1, false, ""},
        {"too deep", nested, {}, -1, false, "3 1 1:772: Excessive depth in document: 256 use XML_PARSE_HUGE option\n"},
        {"deep but huge", nested, huge, 0, false, ""},
    };
    tarn::XmlDocument document;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(document.Load(c.text, c.options), c.result);
        EXPECT_EQ(document.WasRepaired(), c.repaired);
        // libxml2 may add follow-up errors after the first; the first ones are fixed.
        const std::string got = formatted(document.GetDiagnostics());
        EXPECT_EQ(got.substr(0, c.diagnostics.size()), c.diagnostics);
        EXPECT_EQ(got.empty(), c.diagnostics.empty()) << got;
    }
}

TEST(Diagnostics, FormatLeavesOutWhatIsMissing)
{
    const struct { const char* source; int line, column; const char* expected; } cases[] = {
        {"f.xml", 3, 7, "f.xml:3:7: m"}, {"f.xml", 0, 0, "f.xml: m"}, {"", 3, 7, "3:7: m"},
        {"", 3, 0, "3: m"},              {"", 0, 0, "m"},
    };
    for (const auto& c : cases) {
        XmlDiagnostic d;
        d.source = c.source, d.line = c.line, d.column = c.column, d.message = "m";
        EXPECT_EQ(tarn::FormatDiagnostic(d), c.expected);
    }
}

int g_hostHandlerCalls = 0;
void hostHandler(void*, xmlErrorPtr) { ++g_hostHandlerCalls; }

// Each thread loads and reads its own bad documents; the host's global handler never hears of it.
TEST(Diagnostics, EachThreadSeesOnlyItsOwn)
{
    xmlSetStructuredErrorFunc(nullptr, hostHandler);
    std::atomic<int> wrong(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            const std::string tag = "t" + std::to_string(t);
            const std::string text = "<" + tag + "><x" + tag + "></" + tag + ">";
            tarn::XmlDocument document;
            for (int i = 0; i < 300; ++i) {
                const std::string name = tag + "-" + std::to_string(i);
                document.Load(text, named(name.c_str()));
                tarn::XmlReader reader(text);
                while (reader.read()) {
                }
                const std::string expected = name + ":1:" + std::to_string(text.size() + 1) +
                                             ": Opening and ending tag mismatch: x" + tag + " line 1 and " + tag;
                const tarn::XmlDiagnostics& loaded = document.GetDiagnostics();
                const tarn::XmlDiagnostics& read = reader.diagnostics();
                if (loaded.empty() || tarn::FormatDiagnostic(loaded[0]) != expected || read.empty() ||
                    read[0].message != loaded[0].message || reader.state() != 2)
                    ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(g_hostHandlerCalls, 0);
}

// A reader over text in memory still reports as libxml2 does without a handler of its own: to
// the host's structured handler when one is set, otherwise through the generic error function.
// Streaming readers print nothing. The reader keeps its diagnostics until the next open.
__attribute__((format(printf, 2, 3))) void appendGeneric(void* sink, const char* format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    static_cast<std::string*>(sink)->append(line);
}

void countStructured(void* count, xmlErrorPtr) { ++*static_cast<int*>(count); }

TEST(Diagnostics, InMemoryReaderStillReportsThroughLibxml2sHandlers)
{
    const std::string bad = "<a>\n<b></a>";
    std::string printed;
    int structured = 0;
    auto readAll = [](tarn::XmlReader& reader) { while (reader.read()) {} };

    xmlSetGenericErrorFunc(&printed, appendGeneric);
    tarn::XmlReader reader(bad);
    readAll(reader);
    EXPECT_NE(printed.find(":2: parser error : Opening and ending tag mismatch: b line 2 and a\n<b></a>\n"),
              std::string::npos) << printed;
    ASSERT_FALSE(reader.diagnostics().empty());
    EXPECT_EQ(reader.diagnostics()[0].line, 2);
    EXPECT_EQ(reader.diagnostics()[0].level, XmlDiagnostic::Fatal);
    reader.close();
    EXPECT_FALSE(reader.diagnostics().empty());
    reader.reset("<a/>");
    EXPECT_TRUE(reader.diagnostics().empty());
    EXPECT_TRUE(tarn::XmlReader().diagnostics().empty());

    printed.clear();
    xmlSetStructuredErrorFunc(&structured, countStructured);
    reader.reset(bad);
    readAll(reader);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(structured, static_cast<int>(reader.diagnostics().size()));

    const tarntest::TempDir dir;
    ASSERT_TRUE(reader.openFile(dir.write("stream.xml", bad), tarn::XmlReaderOptions()));
    readAll(reader);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    EXPECT_EQ(printed, "");
    EXPECT_FALSE(reader.diagnostics().empty());
}

} // namespace
