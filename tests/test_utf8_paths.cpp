// Every validator path against the reference walk, and the reference walk against an independent
// decoder, on exhaustive short inputs and on millions of random and damaged ones. Inputs are copied
// into heap buffers of exactly their size, so a path that reads past the end trips AddressSanitizer.
#include "TestSupport.h"
#include "Utf8Validate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

using tarn::detail::Utf8Path;

namespace tarn {
namespace detail {
// Parameter values print as the path's name.
void PrintTo(Utf8Path path, std::ostream* out) { *out << utf8PathName(path); }
} // namespace detail
} // namespace tarn

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

using Bytes = std::vector<unsigned char>;

// Independent of the library's table: decode each character by its bit pattern, then refuse what
// Unicode does not allow (overlong forms, surrogates, values above U+10FFFF) and the ASCII controls
// other than tab, line feed and carriage return.
bool decodeValid(const unsigned char* p, std::size_t n)
{
    std::size_t i = 0;
    while (i < n) {
        const unsigned b = p[i];
        std::size_t length;
        std::uint32_t value;
        if ((b & 0x80) == 0) {
            if (b == 0x7F || (b < 0x20 && b != '\t' && b != '\n' && b != '\r'))
                return false;
            ++i;
            continue;
        }
        if ((b & 0xE0) == 0xC0) {
            length = 2;
            value = b & 0x1F;
        } else if ((b & 0xF0) == 0xE0) {
            length = 3;
            value = b & 0x0F;
        } else if ((b & 0xF8) == 0xF0) {
            length = 4;
            value = b & 0x07;
        } else {
            return false;
        }
        if (n - i < length)
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((p[i + k] & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (p[i + k] & 0x3Fu);
        }
        const std::uint32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        if (value < smallest || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

std::string hex(const Bytes& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < bytes.size() && i < 96; ++i) {
        if (i)
            out += ' ';
        out += digits[bytes[i] >> 4];
        out += digits[bytes[i] & 15];
    }
    if (bytes.size() > 96)
        out += " ...";
    return out + " (" + std::to_string(bytes.size()) + " bytes)";
}

// Runs one path over an exactly sized copy and compares it with the reference. Records at most a
// few failures so that a broken path does not flood the output.
class Checker {
public:
    explicit Checker(Utf8Path path) : path_(path) {}

    bool run(const Bytes& bytes)
    {
        std::unique_ptr<unsigned char[]> exact(new unsigned char[bytes.size()]);
        if (!bytes.empty())
            std::memcpy(exact.get(), bytes.data(), bytes.size());
        const bool expected = tarn::detail::utf8ValidScalar(exact.get(), bytes.size());
        const bool actual = tarn::detail::utf8ValidWith(path_, exact.get(), bytes.size());
        ++checked_;
        if (expected != actual && ++failures_ <= 5)
            ADD_FAILURE() << tarn::detail::utf8PathName(path_) << " says " << actual
                          << ", reference says " << expected << " for " << hex(bytes);
        return expected;
    }

    std::size_t checked() const { return checked_; }
    std::size_t failures() const { return failures_; }

private:
    Utf8Path path_;
    std::size_t checked_ = 0;
    std::size_t failures_ = 0;
};

// Boundary bytes of every class: allowed and refused ASCII, the edges of the continuation ranges
// that E0, ED, F0 and F4 narrow, and each kind of lead byte with its neighbours.
const unsigned char kAlphabet[] = {0x00, 0x09, 0x0A, 0x0D, 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0x8F,
                                   0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1,
                                   0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
constexpr std::size_t kAlphabetSize = sizeof kAlphabet;

// Every byte string of `length` over the alphabet, in order.
template <typename Visit>
void forEachAlphabetString(std::size_t length, Visit visit)
{
    Bytes s(length);
    std::vector<std::size_t> digit(length, 0);
    for (;;) {
        for (std::size_t k = 0; k < length; ++k)
            s[k] = kAlphabet[digit[k]];
        visit(s);
        std::size_t k = 0;
        while (k < length && ++digit[k] == kAlphabetSize)
            digit[k++] = 0;
        if (k == length)
            return;
    }
}

void appendCodePoint(Bytes& out, std::uint32_t c)
{
    if (c < 0x80) {
        out.push_back(static_cast<unsigned char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<unsigned char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<unsigned char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<unsigned char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<unsigned char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<unsigned char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<unsigned char>(0x80 | (c & 0x3F)));
    }
}

// Valid text mixing long ASCII runs (the fast path) with characters of every length, weighted
// towards the edges of each length's range.
class TextGenerator {
public:
    explicit TextGenerator(std::uint32_t seed) : rng_(seed) {}

    Bytes make(std::size_t targetLength)
    {
        Bytes out;
        const int style = pick(4); // 0 mostly ASCII, 1 mostly CJK, 2 mixed, 3 edges
        while (out.size() < targetLength) {
            const int roll = pick(100);
            if (style == 0 ? roll < 90 : style == 1 ? roll < 15 : roll < 40)
                appendAsciiRun(out, 1 + pick(style == 0 ? 40 : 6));
            else
                appendCodePoint(out, style == 3 ? edgeCodePoint() : otherCodePoint(style));
        }
        return out;
    }

    std::mt19937& rng() { return rng_; }
    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }

private:
    void appendAsciiRun(Bytes& out, int n)
    {
        for (int k = 0; k < n; ++k) {
            const int r = pick(64);
            out.push_back(r == 0 ? '\n' : r == 1 ? '\t' : r == 2 ? '\r'
                                                : static_cast<unsigned char>(0x20 + pick(0x5F)));
        }
    }

    std::uint32_t edgeCodePoint()
    {
        static const std::uint32_t edges[] = {0x80,   0x7FF,   0x800,   0xFFF,   0x1000,  0xD7FF,
                                              0xE000, 0xFFFD,  0xFFFE,  0xFFFF,  0x10000, 0x3FFFF,
                                              0x40000, 0xFFFFF, 0x100000, 0x10FFFF};
        return edges[pick(sizeof edges / sizeof edges[0])];
    }

    std::uint32_t otherCodePoint(int style)
    {
        const int r = pick(100);
        if (style == 1 && r < 85)
            return 0x4E00 + static_cast<std::uint32_t>(pick(0x51A0)); // CJK ideographs
        if (r < 30)
            return 0x80 + static_cast<std::uint32_t>(pick(0x780));
        if (r < 80) {
            std::uint32_t c = 0x800 + static_cast<std::uint32_t>(pick(0xF800));
            return (c >= 0xD800 && c <= 0xDFFF) ? c + 0x800 : c;
        }
        return 0x10000 + static_cast<std::uint32_t>(pick(0x100000));
    }

    std::mt19937 rng_;
};

// One way of damaging valid text at position p.
void damage(Bytes& bytes, std::size_t p, TextGenerator& gen)
{
    const int kind = gen.pick(5);
    const auto someByte = [&]() -> unsigned char {
        return gen.pick(2) ? kAlphabet[gen.pick(kAlphabetSize)]
                           : static_cast<unsigned char>(gen.pick(256));
    };
    switch (kind) {
    case 0: // replace
        bytes[p] = someByte();
        break;
    case 1: // flip one bit
        bytes[p] = static_cast<unsigned char>(bytes[p] ^ (1u << gen.pick(8)));
        break;
    case 2: // insert
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(p), someByte());
        break;
    case 3: // delete
        bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(p));
        break;
    default: // cut off
        bytes.resize(p);
        break;
    }
}

class Utf8PathTest : public ::testing::TestWithParam<Utf8Path> {
protected:
    void SetUp() override
    {
        if (!tarn::detail::utf8PathSupported(GetParam()))
            GTEST_SKIP() << tarn::detail::utf8PathName(GetParam()) << " is not supported here";
    }
};

std::string pathName(const ::testing::TestParamInfo<Utf8Path>& info)
{
    return tarn::detail::utf8PathName(info.param);
}

} // namespace

TEST(Utf8Reference, TableWalkAgreesWithDecoderOnShortInputs)
{
    std::size_t mismatches = 0;
    const auto compare = [&](const Bytes& s) {
        const bool table = tarn::detail::utf8ValidScalar(s.data(), s.size());
        if (table != decodeValid(s.data(), s.size()) && ++mismatches <= 5)
            ADD_FAILURE() << "table walk says " << table << " for " << hex(s);
    };
    for (unsigned a = 0; a < 256; ++a) {
        compare(Bytes{static_cast<unsigned char>(a)});
        for (unsigned b = 0; b < 256; ++b)
            compare(Bytes{static_cast<unsigned char>(a), static_cast<unsigned char>(b)});
    }
    forEachAlphabetString(3, compare);
    if (!tarntest::quick())
        forEachAlphabetString(4, compare);
    EXPECT_EQ(mismatches, 0u);
}

TEST(Utf8Reference, TableWalkAgreesWithDecoderOnRandomText)
{
    TextGenerator gen(7);
    std::size_t mismatches = 0;
    for (long round = 0; round < tarntest::iterations(kSanitized ? 20000 : 100000); ++round) {
        Bytes s = gen.make(static_cast<std::size_t>(gen.pick(200)));
        if (!s.empty() && gen.pick(4) != 0)
            damage(s, static_cast<std::size_t>(gen.pick(static_cast<int>(s.size()))), gen);
        const bool table = tarn::detail::utf8ValidScalar(s.data(), s.size());
        if (table != decodeValid(s.data(), s.size()) && ++mismatches <= 5)
            ADD_FAILURE() << "table walk says " << table << " for " << hex(s);
    }
    EXPECT_EQ(mismatches, 0u);
}

TEST(Utf8Dispatch, PicksTheFastestSupportedPath)
{
    EXPECT_TRUE(tarn::detail::utf8PathSupported(Utf8Path::Scalar));
    const Utf8Path best = tarn::detail::utf8BestPath();
    EXPECT_TRUE(tarn::detail::utf8PathSupported(best));
    for (Utf8Path path : tarn::detail::kUtf8Paths) {
        if (static_cast<int>(path) > static_cast<int>(best)) {
            EXPECT_FALSE(tarn::detail::utf8PathSupported(path)) << tarn::detail::utf8PathName(path);
        }
    }
    const unsigned char text[] = {'o', 'k', 0xC3, 0xA9};
    EXPECT_TRUE(tarn::detail::utf8Valid(text, sizeof text));
    EXPECT_FALSE(tarn::detail::utf8Valid(text, sizeof text - 1));
    EXPECT_TRUE(tarn::detail::utf8Valid(text, 0));
}

// utf8Valid hands short texts to the word walk and longer ones to the best path: the same answers
// on both sides of the hand-over.
TEST(Utf8Dispatch, AgreesWithTheReferenceAroundTheShortTextLimit)
{
    TextGenerator gen(31);
    std::size_t mismatches = 0;
    for (long round = 0; round < tarntest::iterations(50000); ++round) {
        Bytes text = gen.make(static_cast<std::size_t>(gen.pick(40)));
        if (!text.empty() && gen.pick(2))
            damage(text, static_cast<std::size_t>(gen.pick(static_cast<int>(text.size()))), gen);
        const std::unique_ptr<unsigned char[]> exact(new unsigned char[text.size()]);
        if (!text.empty())
            std::memcpy(exact.get(), text.data(), text.size());
        if (tarn::detail::utf8Valid(exact.get(), text.size()) !=
                tarn::detail::utf8ValidScalar(exact.get(), text.size()) &&
            ++mismatches <= 5)
            ADD_FAILURE() << "utf8Valid disagrees on " << hex(text);
    }
    EXPECT_EQ(mismatches, 0u);
}

TEST_P(Utf8PathTest, AllOneAndTwoByteInputs)
{
    Checker check(GetParam());
    for (unsigned a = 0; a < 256; ++a) {
        check.run(Bytes{static_cast<unsigned char>(a)});
        for (unsigned b = 0; b < 256; ++b)
            check.run(Bytes{static_cast<unsigned char>(a), static_cast<unsigned char>(b)});
    }
    EXPECT_EQ(check.failures(), 0u);
}

// Short strings over the alphabet, alone and inside ASCII so that they start just before, on and
// just after the 16-, 32- and 64-byte block edges, with nothing, a few bytes or a full block after.
TEST_P(Utf8PathTest, AlphabetStringsAtBlockEdges)
{
    Checker check(GetParam());
    // Quick runs (valgrind, emulation) keep the edges of the 32-byte block only, sanitizer runs
    // the last bytes before each block edge.
    const std::vector<std::size_t> offsets =
        tarntest::quick() ? std::vector<std::size_t>{0, 30, 31}
        : kSanitized      ? std::vector<std::size_t>{0, 14, 15, 30, 31, 62, 63}
                          : std::vector<std::size_t>{0, 1, 13, 14, 15, 16, 29, 30, 31, 32, 61, 62, 63, 64, 95};
    const std::vector<std::size_t> trailers =
        tarntest::quick() ? std::vector<std::size_t>{0, 33} : std::vector<std::size_t>{0, 1, 33};
    for (std::size_t length = 1; length <= 3; ++length) {
        forEachAlphabetString(length, [&](const Bytes& s) {
            for (std::size_t offset : offsets) {
                for (std::size_t trailer : trailers) {
                    Bytes text(offset, 'a');
                    text.insert(text.end(), s.begin(), s.end());
                    text.insert(text.end(), trailer, 'b');
                    check.run(text);
                }
            }
        });
    }
    if (!tarntest::quick())
        forEachAlphabetString(4, [&](const Bytes& s) { check.run(s); });
    EXPECT_EQ(check.failures(), 0u);
}

// One refused or multi-byte character at every position of ASCII texts of every length up to
// three 64-byte blocks: the ASCII test of each block and the hand-over between blocks.
TEST_P(Utf8PathTest, OneSpecialCharacterAtEveryPosition)
{
    Checker check(GetParam());
    const Bytes specials[] = {{0x00},       {0x08},       {0x0B}, {0x1F}, {0x7F},
                              {0x80},       {0xC3, 0xA9}, {0xC3}, {0xE2, 0x82, 0xAC},
                              {0xE2, 0x82}, {0xF0, 0x9F, 0x98, 0x80}, {0xF0, 0x9F, 0x98},
                              {0xED, 0xA0, 0x80}, {0xFF}};
    std::size_t referenceWrong = 0;
    const std::size_t longest = tarntest::quick() ? 70 : 192;
    for (std::size_t length = 1; length <= longest; ++length) {
        for (const Bytes& special : specials) {
            const bool shouldBeValid = special.size() > 1 && decodeValid(special.data(), special.size());
            for (std::size_t p = 0; p < length; ++p) {
                Bytes text(length, 'x');
                text.insert(text.begin() + static_cast<std::ptrdiff_t>(p), special.begin(),
                            special.end());
                if (check.run(text) != shouldBeValid)
                    ++referenceWrong;
            }
        }
    }
    EXPECT_EQ(check.failures(), 0u);
    EXPECT_EQ(referenceWrong, 0u);
}

// Valid text of every length, damaged at every position: each offset relative to the block edges
// sees every kind of damage.
TEST_P(Utf8PathTest, DamagedTextAtEveryOffset)
{
    Checker check(GetParam());
    TextGenerator gen(2024 + static_cast<std::uint32_t>(GetParam()));
    std::size_t validSeen = 0;
    const long texts = tarntest::iterations(kSanitized ? 600 : 4000);
    for (long t = 0; t < texts; ++t) {
        const Bytes base = gen.make(static_cast<std::size_t>(gen.pick(t % 10 == 0 ? 400 : 140)));
        if (!check.run(base))
            ADD_FAILURE() << "generated text is not valid: " << hex(base);
        for (std::size_t p = 0; p < base.size(); ++p) {
            Bytes text = base;
            damage(text, p, gen);
            validSeen += check.run(text) ? 1 : 0;
        }
    }
    EXPECT_EQ(check.failures(), 0u);
    // Some damage leaves valid text (a flipped bit inside ASCII), most does not.
    EXPECT_GT(validSeen, 0u);
    EXPECT_LT(validSeen, check.checked() / 2);
}

// Random bytes biased towards the interesting ones, and long texts with damage near their end.
TEST_P(Utf8PathTest, RandomBytesAndLongTexts)
{
    Checker check(GetParam());
    TextGenerator gen(99 + static_cast<std::uint32_t>(GetParam()));
    const long rounds = tarntest::iterations(kSanitized ? 20000 : 200000);
    for (long r = 0; r < rounds; ++r) {
        Bytes text(static_cast<std::size_t>(gen.pick(80)));
        for (unsigned char& b : text)
            b = gen.pick(3) ? kAlphabet[gen.pick(kAlphabetSize)] : static_cast<unsigned char>(gen.pick(256));
        check.run(text);
    }
    for (long r = 0; r < tarntest::iterations(kSanitized ? 20 : 100); ++r) {
        Bytes text = gen.make(20000 + static_cast<std::size_t>(gen.pick(5000)));
        check.run(text);
        damage(text, text.size() - 1 - static_cast<std::size_t>(gen.pick(100)), gen);
        check.run(text);
    }
    EXPECT_EQ(check.failures(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Paths, Utf8PathTest, ::testing::ValuesIn(tarn::detail::kUtf8Paths), pathName);
