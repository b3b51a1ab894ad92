#include "tarn/shared.h"
#include "tarn/logger.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <execinfo.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

const std::string TRUE_STRING = "true";
const std::string FALSE_STRING = "false";
const std::string VAR_TRUE_STRING = "-1";
const std::string VAR_FALSE_STRING = "0";
const std::string EMPTY_STRING;

void replace_nonprintable(std::string& text, const char* replacement, bool replaceWhitespace)
{
    const char with = (replacement && *replacement) ? *replacement : '?';
    for (char& c : text) {
        const auto b = static_cast<unsigned char>(c);
        const bool whitespace = b == '\t' || b == '\n' || b == '\r';
        if ((b < 0x20 && (!whitespace || replaceWhitespace)) || b == 0x7F)
            c = with;
    }
}

namespace tarn {
namespace {

const char* skipBlanks(const char* p)
{
    while (*p == ' ' || *p == '\t')
        ++p;
    return p;
}

template <typename T>
T parseInteger(const char* text, int base = 10)
{
    if (!text)
        return 0;
    const char* p = skipBlanks(text);
    if (*p == '+')
        ++p;
    T value = 0;
    const char* end = p + std::strlen(p);
    const auto result = std::from_chars(p, end, value, base);
    if (result.ec != std::errc())
        return 0;
    return value;
}

} // namespace

int ToInt32(const char* text) { return parseInteger<int>(text); }
unsigned int ToUInt32(const char* text) { return parseInteger<unsigned int>(text); }
long long ToInt64(const char* text) { return parseInteger<long long>(text); }
unsigned long long ToUInt64(const char* text) { return parseInteger<unsigned long long>(text); }

unsigned long long ToUINT64(const char* text)
{
    if (!text)
        return 0;
    const char* p = skipBlanks(text);
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))
        return parseInteger<unsigned long long>(p + 2, 16);
    return parseInteger<unsigned long long>(p);
}

double ToDouble(const char* text, const std::locale& locale)
{
    if (!text)
        return 0.0;
    const char* p = skipBlanks(text);
    if (*p == '+')
        ++p;
    // from_chars reads "." only: text of another locale is read from a copy with its decimal
    // point swapped; the common "." case is read in place.
    std::string local;
    const char point = std::use_facet<std::numpunct<char>>(locale).decimal_point();
    if (point != '.') {
        local = p;
        for (char& c : local)
            if (c == point)
                c = '.';
        p = local.c_str();
    }
    double value = 0.0;
    const auto result = std::from_chars(p, p + std::strlen(p), value);
    if (result.ec != std::errc())
        return 0.0;
    return value;
}

std::string ToString(double value, unsigned int precision, const std::locale& locale)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general,
                                      static_cast<int>(precision == 0 ? 1 : precision));
    std::string text(buffer, result.ec == std::errc() ? result.ptr : buffer);
    const char point = std::use_facet<std::numpunct<char>>(locale).decimal_point();
    if (point != '.') {
        for (char& c : text)
            if (c == '.')
                c = point;
    }
    return text;
}

const std::string& ToString(bool value) { return value ? TRUE_STRING : FALSE_STRING; }

StackTrace::StackTrace()
{
    void* buffer[64];
    const int n = ::backtrace(buffer, 64);
    // Skip this constructor's own frame.
    if (n > 1)
        frames_.assign(buffer + 1, buffer + n);
}

std::string StackTrace::toString() const
{
    std::string out;
    if (frames_.empty())
        return out;
    std::unique_ptr<char*, void (*)(void*)> symbols(
        ::backtrace_symbols(frames_.data(), static_cast<int>(frames_.size())), std::free);
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        out += "  #";
        out += std::to_string(i);
        out += ' ';
        if (symbols)
            out += symbols.get()[i];
        out += '\n';
    }
    return out;
}

void AssertWrite(const char* file, int line, const StackTrace& stack) try {
    const char* path = file ? file : "(unknown)";
    if (Logger::hasBeenInitialized) {
        const log4cplus::Logger root = log4cplus::Logger::getRoot();
        std::string message = "assertion failed at ";
        message += path;
        message += ':';
        message += std::to_string(line);
        message += '\n';
        message += stack.toString();
        log4cplus::detail::macro_forced_log(root, log4cplus::ERROR_LOG_LEVEL, message, path, line,
                                            "tarn::AssertWrite");
    } else {
        std::fprintf(stderr, "assertion failed at %s:%d\n%s", path, line, stack.toString().c_str());
    }
} catch (...) {
    // An assertion report must never take the caller down.
}

} // namespace tarn
