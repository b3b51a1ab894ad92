#include "TestSupport.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <libxml/xmlerror.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
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

CollectingAppender& collecting(const log4cplus::SharedAppenderPtr& appender)
{
    return static_cast<CollectingAppender&>(*appender);
}

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

const std::vector<LogRecord>& LogCapture::records() const { return collecting(appender_).records; }

std::vector<LogRecord> LogCapture::assertions() const
{
    std::vector<LogRecord> out;
    for (const auto& record : records())
        if (record.function == "tarn::AssertWrite")
            out.push_back(record);
    return out;
}

void LogCapture::clear() { collecting(appender_).records.clear(); }

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

TempDir::TempDir()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tarnxml-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!::mkdtemp(buffer.data()))
        throw std::runtime_error("mkdtemp failed");
    path_ = buffer.data();
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
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

bool quick()
{
    const char* value = std::getenv("TARNXML_TEST_QUICK");
    return value && *value && std::string(value) != "0";
}

long iterations(long normal)
{
    if (!quick())
        return normal;
    return normal / 10 > 0 ? normal / 10 : 1;
}

} // namespace tarntest
