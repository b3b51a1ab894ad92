#pragma once
// Test helpers: capturing log records and assertion reports, silencing libxml2's error printing,
// temporary directories.
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>

namespace tarntest {

struct LogRecord {
    log4cplus::LogLevel level;
    std::string message;
    std::string file;
    int line;
    std::string function;
};

// While alive, every record that reaches the log4cplus root logger is collected here instead of
// being printed. The product's logging set-up (tarn::Logger::initialize) runs first, so that
// assertion reports go through log4cplus too. The root level is set to `level` and restored
// afterwards, as are the appenders that were attached.
class LogCapture {
public:
    explicit LogCapture(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& records() const;
    // Records made by tarn::AssertWrite (assertion reports).
    std::vector<LogRecord> assertions() const;

private:
    log4cplus::SharedAppenderPtr appender_;
    std::vector<log4cplus::SharedAppenderPtr> saved_;
    log4cplus::LogLevel savedLevel_;
};

// While alive, libxml2 prints nothing for this thread (generic and structured error handlers).
class QuietLibxml2 {
public:
    QuietLibxml2();
    ~QuietLibxml2();
    QuietLibxml2(const QuietLibxml2&) = delete;
    QuietLibxml2& operator=(const QuietLibxml2&) = delete;
};

// A fresh directory under $TMPDIR (or /tmp), removed with its content on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    // Writes `content` to path()/name and returns the full path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string path_;
};

std::string readFile(const std::string& path);
// The files in `directory`, full paths in sorted order.
std::vector<std::string> filesIn(const std::string& directory);
// Runs `command` through the shell and appends the first `limit` bytes of its standard output to
// `output`. Gives the exit code, 128 + the signal that ended it, or -1 when it cannot start.
int runShell(const std::string& command, std::string& output, std::size_t limit = std::string::npos);

// True when TARNXML_TEST_QUICK is set (valgrind runs): long randomised tests use smaller counts.
bool quick();
// `normal` iterations, or a tenth of them (at least 1) in quick mode.
long iterations(long normal);

} // namespace tarntest
