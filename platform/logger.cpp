#include "tarn/logger.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <memory>
#include <mutex>

namespace log4cplus {
// Exported by liblog4cplus 2.0 (log4cplus::deinitialize calls it) but not declared in its
// installed headers: destroys the default context's thread pool after its workers have ended.
LOG4CPLUS_EXPORT void shutdownThreadPool();
} // namespace log4cplus

namespace {

// log4cplus 2.0 starts a pool of worker threads (four) as soon as it is loaded, for appenders
// that log asynchronously. A process that forks without exec gets a child without those threads,
// and the child's exit then waits forever in the pool's destructor for workers that are not
// there. The product's appenders log synchronously and never use the pool, so it is shut down
// while this library is loaded (log4cplus, which it depends on, is initialised by then): no
// logging thread remains, and a forked child exits normally.
struct ThreadPoolShutdown {
    ThreadPoolShutdown() { log4cplus::shutdownThreadPool(); }
};
const ThreadPoolShutdown threadPoolShutdown;

} // namespace

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
