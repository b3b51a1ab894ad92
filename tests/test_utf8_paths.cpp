// Every validator path against the scalar table walk, and the table walk against utfcpp, on
// exhaustive short inputs and on millions of random and damaged ones. Inputs are copied into heap
// buffers of exactly their size, so a path that reads past the end trips AddressSanitizer.
#include "TestSupport.h"
#include "Utf8Validate.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <utf8.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace tarn::detail;
using Bytes = std::vector<unsigned char>;
using Validator = std::function<bool(const unsigned char*, std::size_t)>;

namespace {

#ifdef __SANITIZE_ADDRESS__ // GCC's mark of an ASan build: smaller loop counts there
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Independent of the library's table: utfcpp's decoder (it refuses overlong forms, surrogates and
// values above U+10FFFF) and the ASCII controls other than tab, line feed and carriage return.
bool referenceValid(const unsigned char* p, std::size_t n)
{
    return utf8::is_valid(p, p + n) && std::none_of(p, p + n, [](unsigned char b) {
               return b == 0x7F || (b < 0x20 && b != '\t' && b != '\n' && b != '\r');
           });
}

// Boundary bytes of every class: allowed and refused ASCII, the edges of the continuation ranges
// that E0, ED, F0 and F4 narrow, and each kind of lead byte with its neighbours.
const unsigned char kAlphabet[] = {0x00, 0x09, 0x0A, 0x0D, 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0x8F,
                                   0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1,
                                   0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
constexpr std::size_t kAlphabetSize = sizeof kAlphabet;

// The validators held against the table walk: every path (forced in turn), the dispatcher (which
// answers short printable ASCII inline and hands other short texts to the word walk) and utfcpp,
// which checks the table walk itself.
struct Candidate { std::string name; bool supported; Validator validate; };

std::vector<Candidate> candidates()
{
    std::vector<Candidate> all;
    for (Utf8Path path : kUtf8Paths)
        all.push_back({utf8PathName(path), utf8PathSupported(path),
                       [path](const unsigned char* p, std::size_t n) { return utf8ValidWith(path, p, n); }});
    all.push_back({"dispatch", true, utf8Valid});
    all.push_back({"utfcpp", true, referenceValid});
    return all;
}

class Utf8PathTest : public ::testing::TestWithParam<std::size_t> {
protected:
    void SetUp() override { if (!candidate.supported) GTEST_SKIP() << candidate.name << " is not supported here"; }

    // Runs the candidate over an exactly sized copy and compares it with the table walk. Reports at
    // most a few failures so that a broken path does not flood the output.
    bool check(const Bytes& bytes)
    {
        const std::unique_ptr<unsigned char[]> exact(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        const bool expected = utf8ValidScalar(exact.get(), bytes.size());
        if (candidate.validate(exact.get(), bytes.size()) != expected && ++failures <= 5)
            ADD_FAILURE() << candidate.name << " differs from the table walk (" << expected << ") for " << bytes.size()
                          << " bytes " << fmt::format("{:02X}", fmt::join(bytes.begin(), bytes.begin() + std::min<std::size_t>(bytes.size(), 96), " "));
        return expected;
    }

    std::uint32_t pick(std::uint32_t n) { return rng() % n; }

    // Valid text mixing ASCII runs (the fast path) with characters of every length.
    Bytes make(std::size_t targetLength)
    {
        static const std::uint32_t edges[] = {0x80,   0x7FF,  0x800,   0xFFF,   0x1000,  0xD7FF,   0xE000,  0xFFFD,
                                              0xFFFE, 0xFFFF, 0x10000, 0x3FFFF, 0x40000, 0xFFFFF, 0x100000, 0x10FFFF};
        static const std::uint32_t from[] = {0x80, 0x800, 0xE000, 0x10000}, span[] = {0x780, 0xD000, 0x2000, 0x100000};
        Bytes out;
        const std::uint32_t style = pick(4); // 0 mostly ASCII, 1 mostly 3-byte, 2 mixed, 3 range edges
        const std::uint32_t asciiPercent = style == 0 ? 97 : style == 1 ? 30 : 70;
        while (out.size() < targetLength) {
            const std::uint32_t c = pick(0x62), k = style == 1 && pick(4) ? 1 : pick(4);
            if (pick(100) < asciiPercent) // tab, line feed, carriage return or printable
                out.push_back(static_cast<unsigned char>(c < 3 ? "\n\t\r"[c] : 0x1D + c));
            else
                utf8::append(style == 3 ? edges[pick(16)] : from[k] + pick(span[k]), std::back_inserter(out));
        }
        return out;
    }

    // Replaces, flips a bit of, inserts before, deletes or cuts off at byte p.
    void damage(Bytes& bytes, std::size_t p)
    {
        const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(p);
        const auto some = static_cast<unsigned char>(pick(2) ? kAlphabet[pick(kAlphabetSize)] : pick(256));
        switch (pick(5)) {
        case 0: bytes[p] = some; break;
        case 1: bytes[p] = static_cast<unsigned char>(bytes[p] ^ (1u << pick(8))); break;
        case 2: bytes.insert(at, some); break;
        case 3: bytes.erase(at); break;
        default: bytes.resize(p); break;
        }
    }

    const Candidate candidate = candidates()[GetParam()];
    std::size_t failures = 0;
    std::mt19937 rng{2024 + static_cast<unsigned>(GetParam())};
};

} // namespace

TEST(Utf8Dispatch, PicksTheFastestSupportedPath)
{
    EXPECT_TRUE(utf8PathSupported(Utf8Path::Scalar) && utf8PathSupported(utf8BestPath()));
    for (Utf8Path path : kUtf8Paths)
        EXPECT_TRUE(path <= utf8BestPath() || !utf8PathSupported(path)) << utf8PathName(path);
}

// Every 1- and 2-byte input, and strings of up to 3 bytes over the alphabet inside ASCII so that
// they start just before, on and just after the 16-, 32- and 64-byte block edges, with nothing, a
// few bytes or a full block after.
TEST_P(Utf8PathTest, ShortInputsAtBlockEdges)
{
    // Quick runs (valgrind, emulation) keep the edges of the 32-byte block only, sanitizer runs
    // the last bytes before each block edge.
    using Sizes = std::vector<std::size_t>;
    const Sizes offsets = tarntest::quick() ? Sizes{0, 30, 31} : kSanitized ? Sizes{0, 14, 15, 30, 31, 62, 63}
                                            : Sizes{0, 1, 13, 14, 15, 16, 29, 30, 31, 32, 61, 62, 63, 64, 95};
    const Sizes trailers = tarntest::quick() ? Sizes{0, 33} : Sizes{0, 1, 33};
    const auto inAlphabet = [](unsigned char b) { return std::count(kAlphabet, kAlphabet + kAlphabetSize, b) > 0; };
    // Every 1- and 2-byte input, then every string of 3 or 4 bytes over the alphabet; the short
    // strings over the alphabet also at each offset, the rest at offset 0 only.
    for (std::size_t length = 1; length <= (tarntest::quick() ? 3u : 4u); ++length) {
        const std::size_t letters = length <= 2 ? 256 : kAlphabetSize;
        for (std::size_t index = 0, total = static_cast<std::size_t>(std::pow(letters, length)); index < total; ++index) {
            Bytes s(length);
            for (std::size_t k = 0, rest = index; k < length; ++k, rest /= letters)
                s[k] = static_cast<unsigned char>(length <= 2 ? rest % letters : kAlphabet[rest % letters]);
            if (length > 3 || !std::all_of(s.begin(), s.end(), inAlphabet)) {
                check(s);
                continue;
            }
            for (std::size_t offset : offsets)
                for (std::size_t trailer : trailers) {
                    Bytes text(offset, 'a');
                    text.insert(text.end(), s.begin(), s.end());
                    text.insert(text.end(), trailer, 'b');
                    check(text);
                }
        }
    }
}

// Valid text damaged at every position, so that each offset relative to the block edges sees every
// kind of damage; random bytes biased towards the alphabet; long texts damaged near their end.
TEST_P(Utf8PathTest, RandomAndDamagedText)
{
    std::size_t validSeen = 0, damaged = 0;
    for (long t = 0; t < tarntest::iterations(kSanitized ? 600 : 4000); ++t) {
        const Bytes base = make(pick(t % 10 == 0 ? 400 : 140));
        EXPECT_TRUE(check(base)) << "generated text is not valid";
        for (std::size_t p = 0; p < base.size(); ++p, ++damaged) {
            Bytes text = base;
            damage(text, p);
            validSeen += check(text) ? 1 : 0;
        }
    }
    // Some damage leaves valid text (a flipped bit inside ASCII), most does not.
    EXPECT_GT(validSeen, 0u);
    EXPECT_LT(validSeen, damaged / 2);
    for (long r = 0; r < tarntest::iterations(kSanitized ? 20000 : 200000); ++r) {
        Bytes text(pick(80));
        for (unsigned char& b : text)
            b = static_cast<unsigned char>(pick(3) ? kAlphabet[pick(kAlphabetSize)] : pick(256));
        check(text);
    }
    for (long r = 0; r < tarntest::iterations(kSanitized ? 20 : 100); ++r) {
        Bytes text = make(20000 + pick(5000));
        check(text);
        damage(text, text.size() - 1 - pick(100));
        check(text);
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, Utf8PathTest, ::testing::Range(std::size_t{0}, candidates().size()),
                         [](const ::testing::TestParamInfo<std::size_t>& param) { return candidates()[param.param].name; });
