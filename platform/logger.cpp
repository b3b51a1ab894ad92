#include "tarn/logger.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <memory>
#include <mutex>

namespace tarn {

int Logger::hasBeenInitialized = 0;

void Logger::initialize()
{
    static std::once_flag once;
    std::call_once(once, [] {
        log4cplus::initialize();
        log4cplus::Logger root = log4cplus::Logger::getRoot();
        if (root.getAllAppenders().empty()) {
            log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true /* stderr */));
            console->setLayout(std::unique_ptr<log4cplus::Layout>(
                new log4cplus::PatternLayout(LOG4CPLUS_TEXT("%D{%H:%M:%S.%q} %-5p %b:%L %m%n"))));
            root.addAppender(console);
        }
        hasBeenInitialized = 1;
    });
}

} // namespace tarn
