#pragma once
// The one reader of the number in a numeric character reference ("&#65;", "&#x41;"), shared by
// XmlHelper::XmlDecode and XmlHelper::replaceInvalidNumericEncodings so that both read every
// reference alike.
#include <cstdint>

namespace tarn {
namespace detail {

// Reads a number the way strtoul does on a platform whose unsigned long has 32 bits: leading
// white space (" ", "\t", "\n", "\v", "\f", "\r"), an optional sign, for base 16 an optional "0x"
// or "0X" prefix (taken only when a hexadecimal digit follows it), then the digits of the base
// up to the first byte that is not one. No digits give 0; a negative number wraps modulo 2^32.
// Returns false, leaving `value` alone, when the magnitude does not fit in 32 bits. strtoul
// itself is not used: it follows the process locale, sets errno, and its width differs between
// the 32- and the 64-bit build, so that values between 2^32 and 2^64 would read differently.
// `base` is 10 or 16; `p` points into a zero-terminated string.
bool readReferenceNumber(const unsigned char* p, int base, std::uint32_t& value);

} // namespace detail
} // namespace tarn
