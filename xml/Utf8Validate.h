#pragma once
// The UTF-8 acceptance test behind XmlHelper::isValidUTF8: well-formed UTF-8 (Unicode's table of
// well-formed byte sequences) whose one-byte characters are printable ASCII, tab, line feed or
// carriage return.
//
// Several implementations give the same answer; utf8Valid picks the fastest one the CPU supports
// on first use. The others stay reachable through utf8ValidWith so that tests can hold every one
// against the reference and benchmarks can compare them.
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The full check in use (the fastest one the CPU supports). Size may be 0 (gives true).
bool utf8ValidFull(const unsigned char* data, std::size_t size);

// Whether 1 to 7 bytes are all printable ASCII (0x20..0x7E), tested as one 64-bit word. False
// is no verdict: the bytes may still be valid (tab, line feed, CR or multi-byte characters).
inline bool shortPrintableAscii(const unsigned char* data, std::size_t size)
{
    constexpr std::uint64_t ones = 0x0101010101010101ull;
    constexpr std::uint64_t high = 0x8080808080808080ull;
    std::uint64_t w;
    if (size >= 4) {
        // Two overlapping loads cover 4 to 7 bytes.
        std::uint32_t first;
        std::uint32_t last;
        std::memcpy(&first, data, sizeof first);
        std::memcpy(&last, data + size - 4, sizeof last);
        w = first | (std::uint64_t{last} << 32);
    } else {
        // 1 to 3 bytes (first, middle, last), the other five bytes spaces.
        w = (0x20 * ones & ~std::uint64_t{0xFFFFFF}) | data[0] | (std::uint64_t{data[size / 2]} << 8) |
            (std::uint64_t{data[size - 1]} << 16);
    }
    // A byte below 0x80 is below 0x20 when adding 0x60 leaves its high bit clear, and is 0x7F
    // when adding 1 sets it; below 0x80 neither addition carries into the next byte. A byte
    // with its high bit set fails through the first term.
    return ((w | ~(w + 0x60 * ones) | (w + ones)) & high) == 0;
}

// The validator in use. Short printable ASCII, the usual name, number or word, is answered here
// without a call; everything else goes to the full check. Size may be 0 (gives true).
inline bool utf8Valid(const unsigned char* data, std::size_t size)
{
    if (size - 1 < 7 && shortPrintableAscii(data, size))
        return true;
    return utf8ValidFull(data, size);
}

} // namespace detail
} // namespace tarn
