#pragma once
// The one set of rules by which numbers and booleans become text and back.
#include <locale>
#include <string>

#include <fmt/format.h>

#include "tarn/shared.h"

namespace tarn {
namespace detail {

// Plain decimal: optional "-", digits, no leading zeros, no locale.
template <typename Integer>
inline std::string decimalText(Integer value)
{
    return fmt::format_int(value).str();
}

// Six significant digits, "." as the decimal point whatever the global locale.
inline std::string doubleText(double value) { return tarn::ToString(value, 6, std::locale::classic()); }

inline double classicDouble(const char* text) { return tarn::ToDouble(text, std::locale::classic()); }

// Node text rule (XmlNode::GetDataBool): TRUE_STRING, FALSE_STRING, VAR_TRUE_STRING,
// VAR_FALSE_STRING, "1", "0", "Y", "N" in that order, exactly; then ToLower(text) == "true".
bool nodeTextBool(const std::string& text);
// Attribute and child rule: "1", or TRUE_STRING compared case-insensitively under the classic
// locale (only ASCII letters fold).
bool attributeBool(const std::string& text);
// Reader rule: "1", or "true" compared case-insensitively under the classic locale.
bool readerBool(const std::string& text);

// Equal length and equal bytes after the classic locale's toupper (ASCII letters only).
bool equalsIgnoringAsciiCase(const std::string& a, const std::string& b);

} // namespace detail
} // namespace tarn
