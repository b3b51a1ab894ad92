#include "TestSupport.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <libxml/xmlerror.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "tarn/logger.h"

namespace tarntest {
namespace {

class CollectingAppender : public log4cplus::Appender {
public:
    ~CollectingAppender() override { destructorImpl(); }
    void close() override {}

    std::vector<LogRecord> records;
    std::mutex mutex;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        records.push_back(LogRecord{event.getLogLevel(), event.getMessage(), event.getFile(), event.getLine(),
                                    event.getFunction()});
    }
};

void quietGeneric(void*, const char*, ...) {}
void quietStructured(void*, xmlErrorPtr) {}

} // namespace

LogCapture::LogCapture(log4cplus::LogLevel level)
{
    tarn::Logger::initialize();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    saved_ = root.getAllAppenders();
    root.removeAllAppenders();
    appender_ = log4cplus::SharedAppenderPtr(new CollectingAppender);
    root.addAppender(appender_);
    savedLevel_ = root.getLogLevel();
    root.setLogLevel(level);
}

LogCapture::~LogCapture()
{
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    for (auto& appender : saved_)
        root.addAppender(appender);
    root.setLogLevel(savedLevel_);
}

const std::vector<LogRecord>& LogCapture::records() const { return static_cast<CollectingAppender&>(*appender_).records; }

std::vector<LogRecord> LogCapture::assertions() const
{
    std::vector<LogRecord> out;
    for (const auto& record : records())
        if (record.function == "tarn::AssertWrite")
            out.push_back(record);
    return out;
}

QuietLibxml2::QuietLibxml2()
{
    xmlSetGenericErrorFunc(nullptr, quietGeneric);
    xmlSetStructuredErrorFunc(nullptr, quietStructured);
}

QuietLibxml2::~QuietLibxml2()
{
    xmlSetGenericErrorFunc(nullptr, nullptr);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
}

TempDir::TempDir() : path_((std::filesystem::temp_directory_path() / "tarnxml-test-XXXXXX").string())
{
    if (!::mkdtemp(path_.data()))
        throw std::runtime_error("mkdtemp failed");
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const
{
    const std::string full = path_ + "/" + name;
    std::ofstream out(full, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    return full;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> filesIn(const std::string& directory)
{
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

int runShell(const std::string& command, std::string& output, std::size_t limit)
{
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return -1;
    char chunk[65536];
    for (std::size_t n, kept = 0; (n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0; kept += n)
        output.append(chunk, kept < limit ? std::min(n, limit - kept) : 0);
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

bool quick()
{
    const char* value = std::getenv("TARNXML_TEST_QUICK");
    return value && *value && std::string(value) != "0";
}

long iterations(long normal) { return quick() ? std::max(normal / 10, 1L) : normal; }

} // namespace tarntest
