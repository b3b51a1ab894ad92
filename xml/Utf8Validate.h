#pragma once
// The UTF-8 acceptance test behind XmlHelper::isValidUTF8: well-formed UTF-8 (Unicode's table of
// well-formed byte sequences) whose one-byte characters are printable ASCII, tab, line feed or
// carriage return.
//
// Several implementations give the same answer; utf8Valid picks the fastest one the CPU supports
// on first use. The others stay reachable through utf8ValidWith so that tests can hold every one
// against the reference and benchmarks can compare them.
#include <cstddef>

namespace tarn {
namespace detail {

enum class Utf8Path {
    Scalar, // portable: a byte-table walk with an 8-byte word test for ASCII runs
    Sse2,   // 16-byte ASCII runs checked with SSE2, other bytes by the table walk
    Ssse3,  // 16-byte blocks: ASCII test plus vectorised range checks of multi-byte sequences
    Avx2,   // the same over 32-byte blocks
};

// Every path, in order from the slowest to the fastest.
constexpr Utf8Path kUtf8Paths[] = {Utf8Path::Scalar, Utf8Path::Sse2, Utf8Path::Ssse3,
                                   Utf8Path::Avx2};

// Short name for reports: "scalar", "sse2", "ssse3", "avx2".
const char* utf8PathName(Utf8Path path);

// Whether this build and this CPU can run the path. Scalar is always supported.
bool utf8PathSupported(Utf8Path path);

// The path utf8Valid uses.
Utf8Path utf8BestPath();

// The reference: a plain walk over the byte table. Size may be 0 (gives true).
bool utf8ValidScalar(const unsigned char* data, std::size_t size);

// Runs one path. The caller makes sure it is supported (an unsupported path runs the scalar one).
bool utf8ValidWith(Utf8Path path, const unsigned char* data, std::size_t size);

// The validator in use (the fastest one the CPU supports). Size may be 0 (gives true).
bool utf8Valid(const unsigned char* data, std::size_t size);

} // namespace detail
} // namespace tarn
