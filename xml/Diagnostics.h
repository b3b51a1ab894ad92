#pragma once
// The library's two ways of reporting to the product's diagnostics: log records through a
// log4cplus logger, and assertion reports with a stack trace.
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "tarn/logger.h"

namespace tarn {
namespace detail {

// Source paths that assertion reports and log records name, as the product's build sees them.
constexpr const char* kNodeSourcePath = "../tarnshared/xml/XmlNode";
constexpr const char* kHelperSourcePath = "../tarnshared/xml/XmlHelper";

// The root logger handle of the node source file (fetched at load time).
const log4cplus::Logger& nodeLogger();

// Captures the stack and hands file, line and stack to tarn::AssertWrite; never throws. The
// caller then carries on with its fallback result.
void assertionReport(const char* path, int line) noexcept;

} // namespace detail
} // namespace tarn

// Writes one printf-style log record: the product's logging set-up runs first (once), then the
// message is formatted only when `logger` is enabled for `level`, into log4cplus's per-thread
// buffer, and handed on with the given file, line and function text. A macro so that the format
// string stays a literal the compiler can check.
#define TARN_LOG_RECORD(logger, level, file, line, function, ...)                                   \
    do {                                                                                              \
        if (!::tarn::Logger::hasBeenInitialized)                                                      \
            ::tarn::Logger::initialize();                                                             \
        const ::log4cplus::Logger& tarnLogger_ = (logger);                                            \
        if (tarnLogger_.isEnabledFor(level)) {                                                        \
            ::log4cplus::helpers::snprintf_buf& tarnBuf_ = ::log4cplus::detail::get_macro_body_snprintf_buf(); \
            const char* tarnMessage_ = tarnBuf_.print(__VA_ARGS__);                                  \
            ::log4cplus::detail::macro_forced_log(tarnLogger_, (level), tarnMessage_, (file), (line), (function)); \
        }                                                                                             \
    } while (0)
