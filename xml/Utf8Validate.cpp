#include "Utf8Validate.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#define TARN_UTF8_X86 1
#include <immintrin.h>
#else
#define TARN_UTF8_X86 0
#endif

namespace tarn {
namespace detail {

bool utf8ValidScalar(const unsigned char* data, std::size_t size)
{
    std::size_t i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            if (lead < 0x20 ? !(lead == 0x09 || lead == 0x0A || lead == 0x0D) : lead == 0x7F)
                return false;
            ++i;
            continue;
        }
        std::size_t length;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead == 0xE0) {
            length = 3;
            low = 0xA0;
        } else if ((lead >= 0xE1 && lead <= 0xEC) || lead == 0xEE || lead == 0xEF) {
            length = 3;
        } else if (lead == 0xED) {
            length = 3;
            high = 0x9F;
        } else if (lead == 0xF0) {
            length = 4;
            low = 0x90;
        } else if (lead >= 0xF1 && lead <= 0xF3) {
            length = 4;
        } else if (lead == 0xF4) {
            length = 4;
            high = 0x8F;
        } else {
            return false;
        }
        if (i + length - 1 >= size)
            return false;
        if (data[i + 1] < low || data[i + 1] > high)
            return false;
        for (std::size_t k = 2; k < length; ++k) {
            if (data[i + k] < 0x80 || data[i + k] > 0xBF)
                return false;
        }
        i += length;
    }
    return true;
}

namespace {

// ---------------------------------------------------------------------------------------------
// Scalar building blocks, shared by the portable path and the SSE2 path.

constexpr std::size_t kBad = ~static_cast<std::size_t>(0);

// What a byte means as the first byte of a character: the character's length (0: the byte cannot
// start one, which includes the refused ASCII controls) and the range of the byte after it.
struct LeadInfo {
    unsigned char length;
    unsigned char low;
    unsigned char high;
};

struct LeadTable {
    LeadInfo entry[256];
};

constexpr LeadTable makeLeadTable()
{
    LeadTable table{};
    for (int b = 0; b < 256; ++b) {
        LeadInfo info{0, 0x80, 0xBF};
        if (b < 0x80)
            info.length = ((b >= 0x20 && b != 0x7F) || b == 0x09 || b == 0x0A || b == 0x0D) ? 1 : 0;
        else if (b >= 0xC2 && b <= 0xDF)
            info.length = 2;
        else if (b >= 0xE0 && b <= 0xEF)
            info.length = 3;
        else if (b >= 0xF0 && b <= 0xF4)
            info.length = 4;
        if (b == 0xE0)
            info.low = 0xA0;
        else if (b == 0xED)
            info.high = 0x9F;
        else if (b == 0xF0)
            info.low = 0x90;
        else if (b == 0xF4)
            info.high = 0x8F;
        table.entry[b] = info;
    }
    return table;
}

constexpr LeadTable kLead = makeLeadTable();

// Checks the characters from index i, which starts a character, until the first character boundary
// at or after `stop` (or the end). Returns that boundary, or kBad when a character is refused.
std::size_t walkUntil(const unsigned char* data, std::size_t size, std::size_t i, std::size_t stop)
{
    if (stop > size)
        stop = size;
    while (i < stop) {
        const LeadInfo& info = kLead.entry[data[i]];
        switch (info.length) {
        case 1:
            ++i;
            continue;
        case 2:
            if (size - i < 2 || data[i + 1] < info.low || data[i + 1] > info.high)
                return kBad;
            i += 2;
            continue;
        case 3:
            if (size - i < 3 || data[i + 1] < info.low || data[i + 1] > info.high ||
                (data[i + 2] & 0xC0) != 0x80)
                return kBad;
            i += 3;
            continue;
        case 4:
            if (size - i < 4 || data[i + 1] < info.low || data[i + 1] > info.high ||
                (data[i + 2] & 0xC0) != 0x80 || (data[i + 3] & 0xC0) != 0x80)
                return kBad;
            i += 4;
            continue;
        default:
            return kBad;
        }
    }
    return i;
}

constexpr std::uint64_t kOnes = 0x0101010101010101ull;
constexpr std::uint64_t kHigh = 0x8080808080808080ull;

// High bit of each byte of w that is zero. Exact for every byte (no borrow between bytes).
inline std::uint64_t zeroBytes(std::uint64_t w)
{
    return ~(((w & ~kHigh) + ~kHigh) | w) & kHigh;
}

// Eight ASCII bytes (no high bit set): true when each is printable, tab, line feed or CR.
inline bool asciiWordAllowed(std::uint64_t w)
{
    // With every byte below 0x80 these additions carry into no neighbour: a byte below 0x20 stays
    // below 0x80 after adding 0x60, and only 0x7F reaches 0x80 after adding 1.
    const std::uint64_t control = ~(w + 0x60 * kOnes) & kHigh;
    const std::uint64_t del = (w + kOnes) & kHigh;
    if ((control | del) == 0)
        return true;
    if (del)
        return false;
    const std::uint64_t space =
        zeroBytes(w ^ (0x09 * kOnes)) | zeroBytes(w ^ (0x0A * kOnes)) | zeroBytes(w ^ (0x0D * kOnes));
    return (control & ~space) == 0;
}

// The last few bytes from i (fewer than eight, i at a character boundary; a whole short name or
// value, usually) go through the word test too when they are ASCII: as the last eight bytes of
// the text (rechecking some checked ones), or, in a text shorter than a word, as overlapping
// loads and blanks, which the test accepts.
inline bool validTail(const unsigned char* data, std::size_t size, std::size_t i)
{
    const std::size_t rest = size - i;
    if (rest == 0)
        return true;
    std::uint64_t w;
    if (size >= 8) {
        std::memcpy(&w, data + size - 8, sizeof w);
    } else if (rest >= 4) {
        std::uint32_t low;
        std::uint32_t high;
        std::memcpy(&low, data + i, sizeof low);
        std::memcpy(&high, data + i + rest - 4, sizeof high);
        w = low | (std::uint64_t{high} << 32);
    } else {
        w = (0x20 * kOnes & ~std::uint64_t{0xFFFFFF}) | data[i] | (std::uint64_t{data[i + rest / 2]} << 8) |
            (std::uint64_t{data[i + rest - 1]} << 16);
    }
    if ((w & kHigh) == 0)
        return asciiWordAllowed(w);
    return walkUntil(data, size, i, size) != kBad;
}

// The portable path: runs of ASCII are checked eight bytes at a time, everything else by the
// table walk.
bool validPortable(const unsigned char* data, std::size_t size)
{
    std::size_t i = 0;
    while (size - i >= 8) {
        std::uint64_t w;
        std::memcpy(&w, data + i, sizeof w);
        if ((w & kHigh) == 0) {
            if (!asciiWordAllowed(w))
                return false;
            i += 8;
            continue;
        }
        i = walkUntil(data, size, i, i + 8);
        if (i == kBad)
            return false;
    }
    return validTail(data, size, i);
}

#if TARN_UTF8_X86

// ---------------------------------------------------------------------------------------------
// SSE2: ASCII runs sixteen bytes at a time.

__attribute__((target("sse2"))) inline __m128i allowedAsciiSse2(__m128i v)
{
    // Adding 0x60 moves 0x20..0x7E onto 0x80..0xDE, the signed bytes below -33; every other
    // byte lands elsewhere.
    const __m128i printable =
        _mm_cmplt_epi8(_mm_add_epi8(v, _mm_set1_epi8(0x60)), _mm_set1_epi8(-33));
    const __m128i space = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(0x09)), _mm_cmpeq_epi8(v, _mm_set1_epi8(0x0A))),
        _mm_cmpeq_epi8(v, _mm_set1_epi8(0x0D)));
    return _mm_or_si128(printable, space);
}

__attribute__((target("sse2"))) bool validSse2(const unsigned char* data, std::size_t size)
{
    std::size_t i = 0;
    while (size - i >= 16) {
        if (size - i >= 32) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 16));
            if (_mm_movemask_epi8(_mm_and_si128(allowedAsciiSse2(a), allowedAsciiSse2(b))) == 0xFFFF) {
                i += 32;
                continue;
            }
        }
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        if (_mm_movemask_epi8(allowedAsciiSse2(v)) == 0xFFFF) {
            i += 16;
            continue;
        }
        i = walkUntil(data, size, i, i + 16);
        if (i == kBad)
            return false;
    }
    return walkUntil(data, size, i, size) != kBad;
}

// ---------------------------------------------------------------------------------------------
// SSSE3 and AVX2: every block is checked whole. A block of allowed ASCII needs one test. Other
// blocks go through three table look-ups that classify each pair of neighbouring bytes (after
// Keiser and Lemire, "Validating UTF-8 in less than one instruction per byte"): each look-up
// gives a set of error bits, and a pair is wrong when an error bit survives all three.

// Error bits of the look-up tables.
constexpr unsigned char kTooShort = 1 << 0;   // lead byte followed by a non-continuation
constexpr unsigned char kTooLong = 1 << 1;    // ASCII followed by a continuation
constexpr unsigned char kOverlong3 = 1 << 2;  // E0 followed by 80..9F
constexpr unsigned char kTooLarge = 1 << 3;   // F4 followed by 90..BF, F5..FF followed by 90..BF
constexpr unsigned char kSurrogate = 1 << 4;  // ED followed by A0..BF
constexpr unsigned char kOverlong2 = 1 << 5;  // C0 or C1 followed by a continuation
constexpr unsigned char kTooLarge1000 = 1 << 6; // F5..FF followed by 80..8F
constexpr unsigned char kOverlong4 = 1 << 6;  // F0 followed by 80..8F
constexpr unsigned char kTwoConts = 1 << 7;   // continuation followed by continuation
constexpr unsigned char kCarry = kTooShort | kTooLong | kTwoConts;

// By the high nibble of the first byte of the pair.
alignas(16) constexpr unsigned char kFirstHigh[16] = {
    kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
    kTwoConts, kTwoConts, kTwoConts, kTwoConts,
    kTooShort | kOverlong2,
    kTooShort,
    kTooShort | kOverlong3 | kSurrogate,
    kTooShort | kTooLarge | kTooLarge1000 | kOverlong4};

// By the low nibble of the first byte.
alignas(16) constexpr unsigned char kFirstLow[16] = {
    kCarry | kOverlong3 | kOverlong2 | kOverlong4,
    kCarry | kOverlong2,
    kCarry,
    kCarry,
    kCarry | kTooLarge,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000 | kSurrogate,
    kCarry | kTooLarge | kTooLarge1000,
    kCarry | kTooLarge | kTooLarge1000};

// By the high nibble of the second byte.
alignas(16) constexpr unsigned char kSecondHigh[16] = {
    kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
    kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge1000 | kOverlong4,
    kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge,
    kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge,
    kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge,
    kTooShort, kTooShort, kTooShort, kTooShort};

// For each position of allowed ASCII bytes the identity, elsewhere a value that no byte whose
// low nibble indexes it can equal: pshufb(kSpaceIdentity, v) == v picks out tab, LF and CR.
alignas(16) constexpr unsigned char kSpaceIdentity[16] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x09, 0x0A, 0x80, 0x80, 0x0D, 0x80, 0x80};

// A block whose last bytes start a character that does not fit: any byte over these limits.
alignas(32) constexpr unsigned char kIncompleteLimit[32] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xDF, 0xBF};

// Shuffle indices for a 16-byte load of a text's first bytes: loaded from kShiftedIn + n
// (n < 16), they move byte k of the load to position k + 16 - n and clear the positions below,
// which gives the 16 bytes that end n bytes into the text, zeros standing for bytes before it.
alignas(32) constexpr unsigned char kShiftedIn[32] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// ---- SSSE3, 16-byte blocks.

struct Ssse3State {
    __m128i error;
    __m128i previous;
    __m128i previousIncomplete;
};

__attribute__((target("ssse3"))) inline __m128i allowedAsciiSsse3(__m128i v, __m128i spaceTable)
{
    const __m128i printable =
        _mm_cmplt_epi8(_mm_add_epi8(v, _mm_set1_epi8(0x60)), _mm_set1_epi8(-33));
    return _mm_or_si128(printable, _mm_cmpeq_epi8(_mm_shuffle_epi8(spaceTable, v), v));
}

__attribute__((target("ssse3"))) inline __m128i nibbleLookupSsse3(const unsigned char* table,
                                                                  __m128i nibbles)
{
    return _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(table)), nibbles);
}

// One block that is not all allowed ASCII; `allowed` is allowedAsciiSsse3 of it.
__attribute__((target("ssse3"))) inline void checkBlockSsse3(Ssse3State& s, __m128i v,
                                                             __m128i allowed)
{
    const __m128i highBit = _mm_set1_epi8(static_cast<char>(0x80));
    const __m128i lowNibble = _mm_set1_epi8(0x0F);
    // An ASCII byte (high bit clear) that is not allowed.
    __m128i error = _mm_andnot_si128(_mm_or_si128(allowed, v), highBit);

    const __m128i prev1 = _mm_alignr_epi8(v, s.previous, 15);
    const __m128i prev2 = _mm_alignr_epi8(v, s.previous, 14);
    const __m128i prev3 = _mm_alignr_epi8(v, s.previous, 13);
    const __m128i firstHigh =
        nibbleLookupSsse3(kFirstHigh, _mm_and_si128(_mm_srli_epi16(prev1, 4), lowNibble));
    const __m128i firstLow = nibbleLookupSsse3(kFirstLow, _mm_and_si128(prev1, lowNibble));
    const __m128i secondHigh =
        nibbleLookupSsse3(kSecondHigh, _mm_and_si128(_mm_srli_epi16(v, 4), lowNibble));
    const __m128i special = _mm_and_si128(_mm_and_si128(firstHigh, firstLow), secondHigh);
    // Third and fourth bytes of a character are continuations after continuations: expected
    // there, wrong everywhere else.
    const __m128i third = _mm_subs_epu8(prev2, _mm_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m128i fourth = _mm_subs_epu8(prev3, _mm_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m128i expected = _mm_and_si128(_mm_or_si128(third, fourth), highBit);
    error = _mm_or_si128(error, _mm_xor_si128(special, expected));

    s.error = _mm_or_si128(s.error, error);
    s.previousIncomplete =
        _mm_subs_epu8(v, _mm_loadu_si128(reinterpret_cast<const __m128i*>(kIncompleteLimit + 16)));
    s.previous = v;
}

__attribute__((target("ssse3"))) inline void asciiBlockSsse3(Ssse3State& s, __m128i v)
{
    s.error = _mm_or_si128(s.error, s.previousIncomplete);
    s.previousIncomplete = _mm_setzero_si128();
    s.previous = v;
}

// The 16 bytes that end `start` bytes into the text (start + 16 <= size), zeros standing for
// bytes before the text: the bytes a block loaded at `start` is judged with.
__attribute__((target("ssse3"))) inline __m128i bytesBefore(const unsigned char* data, std::size_t start)
{
    if (start >= 16)
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + start - 16));
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)),
                            _mm_loadu_si128(reinterpret_cast<const __m128i*>(kShiftedIn + start)));
}

// Texts of 16 to 31 bytes: the first 16 bytes and the last 16, overlapping (checking bytes twice
// finds what it found the first time); a block of allowed ASCII needs only its one test.
__attribute__((target("ssse3"))) bool validSsse3Pair(const unsigned char* data, std::size_t size)
{
    Ssse3State s{_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
    const __m128i spaceTable = _mm_load_si128(reinterpret_cast<const __m128i*>(kSpaceIdentity));
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
    const __m128i allowedFirst = allowedAsciiSsse3(first, spaceTable);
    if (_mm_movemask_epi8(allowedFirst) != 0xFFFF)
        checkBlockSsse3(s, first, allowedFirst);
    const std::size_t start = size - 16;
    const __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + start));
    const __m128i allowedLast = allowedAsciiSsse3(last, spaceTable);
    if (_mm_movemask_epi8(allowedLast) == 0xFFFF) {
        // Allowed ASCII throughout: only a character the first block left unfinished is wrong.
        asciiBlockSsse3(s, last);
    } else {
        s.previous = bytesBefore(data, start);
        checkBlockSsse3(s, last, allowedLast);
    }
    const __m128i error = _mm_or_si128(s.error, s.previousIncomplete);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(error, _mm_setzero_si128())) == 0xFFFF;
}

__attribute__((target("ssse3"))) bool validSsse3(const unsigned char* data, std::size_t size)
{
    if (size >= 16 && size < 32)
        return validSsse3Pair(data, size);
    const __m128i spaceTable = _mm_load_si128(reinterpret_cast<const __m128i*>(kSpaceIdentity));
    Ssse3State s{_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
    std::size_t i = 0;
    for (; size - i >= 32; i += 32) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 16));
        const __m128i allowedA = allowedAsciiSsse3(a, spaceTable);
        const __m128i allowedB = allowedAsciiSsse3(b, spaceTable);
        if (_mm_movemask_epi8(_mm_and_si128(allowedA, allowedB)) == 0xFFFF) {
            asciiBlockSsse3(s, b);
            continue;
        }
        checkBlockSsse3(s, a, allowedA);
        checkBlockSsse3(s, b, allowedB);
    }
    for (; size - i >= 16; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        checkBlockSsse3(s, v, allowedAsciiSsse3(v, spaceTable));
    }
    if (i < size) {
        // The tail, padded with spaces: a character cut off by the end meets a space and fails.
        alignas(16) unsigned char tail[16];
        std::memset(tail, 0x20, sizeof tail);
        std::memcpy(tail, data + i, size - i);
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(tail));
        checkBlockSsse3(s, v, allowedAsciiSsse3(v, spaceTable));
    }
    const __m128i error = _mm_or_si128(s.error, s.previousIncomplete);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(error, _mm_setzero_si128())) == 0xFFFF;
}

// ---- AVX2, 32-byte blocks.

struct Avx2State {
    __m256i error;
    __m256i previous;
    __m256i previousIncomplete;
};

__attribute__((target("avx2"))) inline __m256i broadcastTable(const unsigned char* table)
{
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

__attribute__((target("avx2"))) inline __m256i allowedAsciiAvx2(__m256i v, __m256i spaceTable)
{
    const __m256i printable =
        _mm256_cmpgt_epi8(_mm256_set1_epi8(-33), _mm256_add_epi8(v, _mm256_set1_epi8(0x60)));
    return _mm256_or_si256(printable, _mm256_cmpeq_epi8(_mm256_shuffle_epi8(spaceTable, v), v));
}

struct Avx2Tables {
    __m256i firstHigh;
    __m256i firstLow;
    __m256i secondHigh;
    __m256i incompleteLimit;
};

__attribute__((target("avx2"))) inline void checkBlockAvx2(Avx2State& s, const Avx2Tables& t,
                                                           __m256i v, __m256i allowed)
{
    const __m256i highBit = _mm256_set1_epi8(static_cast<char>(0x80));
    const __m256i lowNibble = _mm256_set1_epi8(0x0F);
    __m256i error = _mm256_andnot_si256(_mm256_or_si256(allowed, v), highBit);

    // The 32 bytes before each byte's predecessor: the previous block's upper half joined with
    // this block's lower half, so that alignr (which works per 128-bit lane) can shift across
    // the lane boundary.
    const __m256i joined = _mm256_permute2x128_si256(s.previous, v, 0x21);
    const __m256i prev1 = _mm256_alignr_epi8(v, joined, 15);
    const __m256i prev2 = _mm256_alignr_epi8(v, joined, 14);
    const __m256i prev3 = _mm256_alignr_epi8(v, joined, 13);
    const __m256i firstHigh =
        _mm256_shuffle_epi8(t.firstHigh, _mm256_and_si256(_mm256_srli_epi16(prev1, 4), lowNibble));
    const __m256i firstLow = _mm256_shuffle_epi8(t.firstLow, _mm256_and_si256(prev1, lowNibble));
    const __m256i secondHigh =
        _mm256_shuffle_epi8(t.secondHigh, _mm256_and_si256(_mm256_srli_epi16(v, 4), lowNibble));
    const __m256i special = _mm256_and_si256(_mm256_and_si256(firstHigh, firstLow), secondHigh);
    const __m256i third = _mm256_subs_epu8(prev2, _mm256_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m256i fourth = _mm256_subs_epu8(prev3, _mm256_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m256i expected = _mm256_and_si256(_mm256_or_si256(third, fourth), highBit);
    error = _mm256_or_si256(error, _mm256_xor_si256(special, expected));

    s.error = _mm256_or_si256(s.error, error);
    s.previousIncomplete = _mm256_subs_epu8(v, t.incompleteLimit);
    s.previous = v;
}

__attribute__((target("avx2"))) inline void asciiBlockAvx2(Avx2State& s, __m256i v)
{
    s.error = _mm256_or_si256(s.error, s.previousIncomplete);
    s.previousIncomplete = _mm256_setzero_si256();
    s.previous = v;
}

// Texts of 32 to 63 bytes (most values that are not short words): the first 32 bytes and the
// last 32, overlapping (checking bytes twice finds what it found the first time), without the
// block loop; a block of allowed ASCII needs only its one test.
__attribute__((target("avx2"))) bool validAvx2Pair(const unsigned char* data, std::size_t size)
{
    const __m256i spaceTable = broadcastTable(kSpaceIdentity);
    const Avx2Tables t{broadcastTable(kFirstHigh), broadcastTable(kFirstLow),
                       broadcastTable(kSecondHigh),
                       _mm256_load_si256(reinterpret_cast<const __m256i*>(kIncompleteLimit))};
    Avx2State s{_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
    const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data));
    const __m256i allowedFirst = allowedAsciiAvx2(first, spaceTable);
    if (_mm256_movemask_epi8(allowedFirst) != -1)
        checkBlockAvx2(s, t, first, allowedFirst);
    const std::size_t start = size - 32;
    const __m256i last = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + start));
    const __m256i allowedLast = allowedAsciiAvx2(last, spaceTable);
    if (_mm256_movemask_epi8(allowedLast) == -1) {
        // Allowed ASCII throughout: only a character the first block left unfinished is wrong.
        asciiBlockAvx2(s, last);
    } else {
        s.previous = _mm256_inserti128_si256(_mm256_setzero_si256(), bytesBefore(data, start), 1);
        checkBlockAvx2(s, t, last, allowedLast);
    }
    const __m256i error = _mm256_or_si256(s.error, s.previousIncomplete);
    return _mm256_testz_si256(error, error) != 0;
}

__attribute__((target("avx2"))) bool validAvx2(const unsigned char* data, std::size_t size)
{
    if (size >= 16 && size < 32)
        return validSsse3Pair(data, size);
    if (size >= 32 && size < 64)
        return validAvx2Pair(data, size);
    const __m256i spaceTable = broadcastTable(kSpaceIdentity);
    const Avx2Tables t{broadcastTable(kFirstHigh), broadcastTable(kFirstLow),
                       broadcastTable(kSecondHigh),
                       _mm256_load_si256(reinterpret_cast<const __m256i*>(kIncompleteLimit))};
    Avx2State s{_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
    std::size_t i = 0;
    for (; size - i >= 64; i += 64) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i + 32));
        const __m256i allowedA = allowedAsciiAvx2(a, spaceTable);
        const __m256i allowedB = allowedAsciiAvx2(b, spaceTable);
        if (_mm256_movemask_epi8(_mm256_and_si256(allowedA, allowedB)) == -1) {
            asciiBlockAvx2(s, b);
            continue;
        }
        // Text that mixes scripts switches often: checking both halves in full costs less than
        // a mispredicted branch per half.
        checkBlockAvx2(s, t, a, allowedA);
        checkBlockAvx2(s, t, b, allowedB);
    }
    if (size - i >= 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        checkBlockAvx2(s, t, v, allowedAsciiAvx2(v, spaceTable));
        i += 32;
    }
    if (i < size && size >= 32) {
        // The tail as the last 32 bytes of the text, overlapping bytes already checked (checking
        // them again finds what it found before). A block is judged with the three bytes before
        // it, taken here from the text itself (zeros before its start, as for the first block).
        const std::size_t start = size - 32;
        s.previous = _mm256_inserti128_si256(_mm256_setzero_si256(), bytesBefore(data, start), 1);
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + start));
        checkBlockAvx2(s, t, v, allowedAsciiAvx2(v, spaceTable));
    } else if (i < size) {
        // A text shorter than a block, padded with spaces: a character cut off by the end meets
        // a space and fails.
        alignas(32) unsigned char tail[32];
        std::memset(tail, 0x20, sizeof tail);
        std::memcpy(tail, data + i, size - i);
        const __m256i v = _mm256_load_si256(reinterpret_cast<const __m256i*>(tail));
        checkBlockAvx2(s, t, v, allowedAsciiAvx2(v, spaceTable));
    }
    const __m256i error = _mm256_or_si256(s.error, s.previousIncomplete);
    return _mm256_testz_si256(error, error) != 0;
}

bool cpuSupports(Utf8Path path)
{
    __builtin_cpu_init();
    switch (path) {
    case Utf8Path::Scalar:
        return true;
    case Utf8Path::Sse2:
        return __builtin_cpu_supports("sse2");
    case Utf8Path::Ssse3:
        return __builtin_cpu_supports("ssse3");
    case Utf8Path::Avx2:
        return __builtin_cpu_supports("avx2");
    }
    return false;
}

#endif // TARN_UTF8_X86

using Validator = bool (*)(const unsigned char*, std::size_t);

Validator validatorFor(Utf8Path path)
{
#if TARN_UTF8_X86
    if (utf8PathSupported(path)) {
        switch (path) {
        case Utf8Path::Scalar:
            break;
        case Utf8Path::Sse2:
            return validSse2;
        case Utf8Path::Ssse3:
            return validSsse3;
        case Utf8Path::Avx2:
            return validAvx2;
        }
    }
#else
    (void)path;
#endif
    return validPortable;
}

} // namespace

const char* utf8PathName(Utf8Path path)
{
    switch (path) {
    case Utf8Path::Scalar:
        return "scalar";
    case Utf8Path::Sse2:
        return "sse2";
    case Utf8Path::Ssse3:
        return "ssse3";
    case Utf8Path::Avx2:
        return "avx2";
    }
    return "?";
}

bool utf8PathSupported(Utf8Path path)
{
#if TARN_UTF8_X86
    return cpuSupports(path);
#else
    return path == Utf8Path::Scalar;
#endif
}

Utf8Path utf8BestPath()
{
    static const Utf8Path best = [] {
        Utf8Path chosen = Utf8Path::Scalar;
        for (Utf8Path path : kUtf8Paths) {
            if (utf8PathSupported(path))
                chosen = path;
        }
        return chosen;
    }();
    return best;
}

bool utf8ValidWith(Utf8Path path, const unsigned char* data, std::size_t size)
{
    return validatorFor(path)(data, size);
}

bool utf8ValidFull(const unsigned char* data, std::size_t size)
{
    // Most texts that pass the gate are short names and values; below one vector block the word
    // walk is quicker than padding a block.
    if (size < 8)
        return validTail(data, size, 0);
    if (size < 16)
        return validPortable(data, size);
    static const Validator validator = validatorFor(utf8BestPath());
    return validator(data, size);
}

} // namespace detail
} // namespace tarn
