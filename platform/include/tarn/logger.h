#pragma once
// Stand-in for the product's libtarnlogger.
#include "tarn/platform_api.h"

namespace tarn {

// Threads: log4cplus 2.0 starts a pool of four worker threads when it is loaded; this library
// shuts that pool down while it is itself loaded, so that no logging thread runs in the process
// and a child forked without exec exits normally (with the pool, its exit hangs in log4cplus's
// clean-up). Appenders configured with log4cplus's AsyncAppend property need that pool and must
// not be used in a process that loads this library.
class TARN_PLATFORM_API Logger {
public:
    // Non-zero once initialize() has run in this process.
    static int hasBeenInitialized;
    // Sets up log4cplus for the process: when the root logger has no appender yet, one console
    // appender on standard error with a "time level file:line message" layout is added. The root
    // logger's level is left as it is (log4cplus's default, DEBUG, so TRACE records are off).
    // Then the flag is set. Calling it again does nothing.
    static void initialize();
};

} // namespace tarn
