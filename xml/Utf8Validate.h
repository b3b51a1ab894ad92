#pragma once
// The UTF-8 acceptance test behind XmlHelper::isValidUTF8: well-formed UTF-8 (Unicode's table of
// well-formed byte sequences) whose one-byte characters are printable ASCII, tab, line feed or
// carriage return.
#include <cstddef>

namespace tarn {
namespace detail {

// The reference: a plain walk over the byte table. Size may be 0 (gives true).
bool utf8ValidScalar(const unsigned char* data, std::size_t size);

// The validator in use (the fastest one the CPU supports). Size may be 0 (gives true).
bool utf8Valid(const unsigned char* data, std::size_t size);

} // namespace detail
} // namespace tarn
