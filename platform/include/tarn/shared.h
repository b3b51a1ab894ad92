#pragma once
// Stand-in for the product's libtarnshared: value conversions, the boolean words, the
// non-printable filter and assertion reports with a stack trace.
//
// Conversions never throw and never look at the process's global locale.
//  - The integer conversions parse with std::from_chars: optional leading blanks (space, tab),
//    an optional "+" (and "-" for the signed ones), then decimal digits; anything after the
//    digits is ignored. Empty text, text without digits, a null pointer and values that do not
//    fit the type all give 0.
//  - ToUINT64 is the product's "identifier" reading: like ToUInt64, but it also accepts a
//    hexadecimal value written with a "0x" or "0X" prefix.
//  - ToDouble parses with std::from_chars (general format); the given locale's decimal point is
//    accepted in place of "."; empty or unparsable text gives 0.0, as do out-of-range values.
//  - ToString(double, precision, locale) writes the shortest %g-style text with that many
//    significant digits ("0.5", "3.14159", "1e+06"), with the locale's decimal point.
#include <string>
#include <locale>
#include <vector>
#include "tarn/platform_api.h"

TARN_PLATFORM_API extern const std::string TRUE_STRING;       // "true"
TARN_PLATFORM_API extern const std::string FALSE_STRING;      // "false"
TARN_PLATFORM_API extern const std::string VAR_TRUE_STRING;   // "-1" (VARIANT_TRUE)
TARN_PLATFORM_API extern const std::string VAR_FALSE_STRING;  // "0"  (VARIANT_FALSE)
TARN_PLATFORM_API extern const std::string EMPTY_STRING;      // ""

// Replaces, in place, every non-printable byte of `text` by `replacement`: the bytes below 0x20
// other than tab, line feed and carriage return, and 0x7F. With `replaceWhitespace` true, tab,
// line feed and carriage return are replaced as well. Bytes of 0x80 and above (multi-byte UTF-8)
// are left alone, so valid UTF-8 stays valid.
TARN_PLATFORM_API void replace_nonprintable(std::string& text, const char* replacement, bool replaceWhitespace);

namespace tarn {

TARN_PLATFORM_API int ToInt32(const char* text);
TARN_PLATFORM_API unsigned int ToUInt32(const char* text);
TARN_PLATFORM_API long long ToInt64(const char* text);
TARN_PLATFORM_API unsigned long long ToUInt64(const char* text);
TARN_PLATFORM_API unsigned long long ToUINT64(const char* text);
TARN_PLATFORM_API double ToDouble(const char* text, const std::locale& locale);

TARN_PLATFORM_API std::string ToString(double value, unsigned int precision, const std::locale& locale);
// TRUE_STRING or FALSE_STRING.
TARN_PLATFORM_API const std::string& ToString(bool value);

// Captures the calling thread's stack (return addresses) when constructed, with backtrace(3).
class TARN_PLATFORM_API StackTrace {
public:
    StackTrace();
    // One line per frame, symbolised as far as the dynamic symbol tables allow.
    std::string toString() const;
    const std::vector<void*>& frames() const { return frames_; }
private:
    std::vector<void*> frames_;
};

// Writes an assertion-failure report naming `file` and `line`, with the stack, and returns.
// Once the product's logging is set up (tarn::Logger::initialize) the report is a log4cplus
// record at ERROR on the root logger whose file and line are `file` and `line` and whose function
// is "tarn::AssertWrite"; before that it goes to standard error. Never throws.
TARN_PLATFORM_API void AssertWrite(const char* file, int line, const StackTrace& stack);

} // namespace tarn
