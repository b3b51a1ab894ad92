#pragma once
// Stand-in for the product's libtarnlogger.
#include "tarn/platform_api.h"

namespace tarn {

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
