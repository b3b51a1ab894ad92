// The input gate through the public API: the acceptance test, repair by sanitize, and the clean-up
// of numeric character references. Inputs sit in heap buffers of exactly their size, so a read past
// the count trips AddressSanitizer. This binary replaces the global operator new to prove that the
// valid path of sanitize allocates nothing.
#include "TestSupport.h"
#include "tarnxml/XmlHelper.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace std::string_literals;

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void* countedAllocate(std::size_t size)
{
    g_allocations += g_counting ? 1 : 0;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

// The allocations made (on any thread; the tests start none) while `f` runs.
template <typename F>
long allocationsDuring(F f)
{
    g_allocations = 0;
    g_counting = true;
    f();
    g_counting = false;
    return g_allocations.load();
}

// An exactly sized heap copy of some bytes, without a zero terminator.
std::vector<char> exact(const std::string& s) { return {s.begin(), s.end()}; }
unsigned sizeOf(const std::string& s) { return static_cast<unsigned>(s.size()); }
std::string hex(const std::string& s) { return fmt::format("{:02X}", fmt::join(std::vector<unsigned char>(s.begin(), s.end()), " ")); }

// Each overload of the acceptance test, and sanitize: valid text (an empty repair below) comes back
// as the caller's own bytes, anything else is repaired into the scratch text.
TEST(Gate, AcceptsValidTextAndRepairsTheRest)
{
    const std::pair<std::string, std::string> cases[] = {
        {"abc", ""}, {"a\tb\r\n", ""}, {" ~", ""}, {"\xC2\xA9", ""}, {"\xE0\xA0\x80", ""}, {"\xED\x9F\xBF", ""},
        {"\xEF\xBF\xBF", ""} /* a noncharacter */, {"\xF0\x90\x80\x80", ""}, {"\xF4\x8F\xBF\xBF", ""},
        {"a\xC3", "a"}, {"a\xE2\x82", "a"}, {"x\xF0\x9F\x98", "x"}, // cut off at the end: dropped without a marker
        {"a\xFF" "b", "a\xEF\xBF\xBD" "b"}, {"\xE2\x82" "b\xC3", "\xEF\xBF\xBD" "b"},
        {"\xED\xA0\x80", "\xEF\xBF\xBD"}, // surrogate: one marker for the sequence
        {"\xC0\x80", "\xEF\xBF\xBD"}, {"\xC1\xBF", "\xEF\xBF\xBD"}, {"\xE0\x80\x80", "\xEF\xBF\xBD"}, // overlong
        {"\xF4\x90\x80\x80" "x", "\xEF\xBF\xBD" "x"}, {"\xC3\xA9\xA9", "\xC3\xA9\xEF\xBF\xBD"},
        {"\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD"}, // two lone continuations: two markers
        {"a\x01\xC3\xA9", "a?\xC3\xA9"},          // valid UTF-8, refused control: only "?"
        {"a\0b"s, "a?b"}, {"a\x7F", "a?"}, {"x\x1F\xFFy\x0B", "x?\xEF\xBF\xBDy?"}, {"tab\tcr\rlf\n\x01", "tab\tcr\rlf\n?"}};
    for (const auto& [input, repaired] : cases) {
        SCOPED_TRACE(hex(input));
        const auto copy = exact(input);
        const bool valid = repaired.empty();
        EXPECT_EQ(std::make_tuple(XmlHelper::isValidUTF8(copy.data(), sizeOf(input)), XmlHelper::isValidUTF8(input),
                                  XmlHelper::isValidUTF8(input.c_str())), std::make_tuple(valid, valid, valid || input == "a\0b"s));
        std::string scratch = "old";
        const XmlHelper::TextView view = XmlHelper::sanitize(copy.data(), sizeOf(input), scratch);
        EXPECT_EQ(hex(std::string(view.view())), hex(valid ? input : repaired));
        EXPECT_TRUE(view.data == (valid ? copy.data() : scratch.c_str()) && view.size == (valid ? input.size() : scratch.size()));
    }
    // The count decides, not the zero terminator.
    EXPECT_TRUE(XmlHelper::isValidUTF8("caf\xC3\xA9\x01", 5u));
    EXPECT_FALSE(XmlHelper::isValidUTF8("caf\xC3\xA9\x01", 4u));
    // Null and empty input: refused, and sanitize gives the empty view and leaves the scratch alone.
    EXPECT_FALSE(XmlHelper::isValidUTF8(nullptr, 0u) || XmlHelper::isValidUTF8(nullptr, 5u) ||
                 XmlHelper::isValidUTF8("abc", 0u) || XmlHelper::isValidUTF8(static_cast<const char*>(nullptr)) ||
                 XmlHelper::isValidUTF8("") || XmlHelper::isValidUTF8(std::string()));
    std::string scratch = "kept";
    for (const XmlHelper::TextView& view :
         {XmlHelper::sanitize(nullptr, 4u, scratch), XmlHelper::sanitize("abc", 0u, scratch),
          XmlHelper::sanitize(static_cast<const char*>(nullptr), scratch), XmlHelper::sanitize("", scratch),
          XmlHelper::sanitize(std::string(), scratch)})
        EXPECT_TRUE(view.data != nullptr && view.size == 0 && view.data[0] == '\0');
    EXPECT_EQ(scratch, "kept");
}

// Whatever comes in, sanitize returns normally with text that passes the acceptance test and that
// a second pass hands back untouched. A character cut off by the end leaves no trace: with one
// more "A" after it, the same bytes are an incomplete sequence and give one marker instead.
TEST(Sanitize, AnyInputComesOutValid)
{
    std::mt19937 rng(5);
    const unsigned char interesting[] = {0x00, 0x01, 0x09, 0x0A, 0x0D, 0x1F, 0x20, 0x41, 0x7F, 0x80, 0xBF,
                                         0xC0, 0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
    std::string scratch, again;
    std::size_t cutOff = 0;
    for (long round = 0; round < tarntest::iterations(20000); ++round) {
        std::string bytes(1 + rng() % 70, '\0');
        for (char& b : bytes)
            b = static_cast<char>(rng() % 2 ? interesting[rng() % sizeof interesting] : rng());
        const std::string out(XmlHelper::sanitize(exact(bytes).data(), sizeOf(bytes), scratch).view());
        const std::string withA(XmlHelper::sanitize(bytes + "A", again).view());
        if (out + "A" != withA) {
            ++cutOff;
            ASSERT_EQ(hex(out + "\xEF\xBF\xBD" "A"), hex(withA)) << "input " << hex(bytes);
            EXPECT_GE(static_cast<unsigned char>(bytes.back()), 0x80) << "input " << hex(bytes);
        }
        ASSERT_TRUE(out.empty() || XmlHelper::isValidUTF8(out)) << "input " << hex(bytes) << ", output " << hex(out);
        EXPECT_TRUE(out.empty() || XmlHelper::sanitize(out, again).data == out.data());
    }
    EXPECT_GT(cutOff, 0u);
}

// Valid input comes back as it is, without a copy or an allocation; repair reuses the caller's
// scratch text, so once it is large enough, repairing again allocates nothing.
TEST(Sanitize, AllocatesOnlyToRepair)
{
    // Fails when a tool such as valgrind has put its own operator new in place of this file's.
    // The probe is volatile so that the pair is not optimised away.
    const bool counting = allocationsDuring([] { void* volatile probe = ::operator new(64); ::operator delete(probe); }) == 1;
    std::string text, scratch;
    while (text.size() < 100000)
        text += "<entry lang=\"ja\">\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E</entry>\n\t<x y=\"1\"/>\r\n";
    XmlHelper::sanitize(text, scratch); // first use picks the validator
    const long validPath = allocationsDuring([&] {
        EXPECT_TRUE(XmlHelper::sanitize(text, scratch).data == text.data() && XmlHelper::isValidUTF8(text) &&
                    XmlHelper::sanitize(text.c_str(), scratch).data == text.data() &&
                    XmlHelper::sanitize(text.data(), sizeOf(text), scratch).data == text.data());
    });
    EXPECT_EQ(scratch.capacity(), std::string().capacity());
    text[10] = '\x01';
    text[2000] = '\xFF';
    const long first = allocationsDuring([&] { XmlHelper::sanitize(text, scratch); });
    const long second = allocationsDuring([&] { XmlHelper::sanitize(text, scratch); });
    EXPECT_EQ(scratch.size(), text.size() + 2); // "?" for 0x01, a marker for 0xFF
    if (!counting)
        GTEST_SKIP() << "operator new is intercepted; allocations cannot be counted";
    EXPECT_EQ(validPath, 0);
    EXPECT_GT(first, 0);
    EXPECT_EQ(second, 0);
}

TEST(ReplaceInvalidNumericEncodings, Table)
{
    // Upper-case X or no digits read as 0; leading white space is skipped, and all up to ";" goes;
    // the search goes on after the ";". Numbers are read as strtoul reads them: -1 wraps to
    // 0xFFFFFFFF, the first non-digit stops, beyond 32 bits is refused. A zero byte ends the text.
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"plain text & more # signs", "plain text & more # signs"}, {"a&#x1F;b", "a?b"}, {"abc&#", "abc&#"},
        {"&#X41;", "?"}, {"&#;", "?"}, {"&#x;", "?"}, {"&# 7;", "?"}, {"&#1 x; y", "? y"}, {"&#9; &#13; &#200; &#xD800;", "&#9; &#13; &#200; &#xD800;"},
        {"&#1;&#65;&#0;&#2", "?&#65;?&#2"}, {"&#65&#1;", "&#65&#1;"}, {"\xC3\xA9&#8;\xE2\x82\xAC", "\xC3\xA9?\xE2\x82\xAC"},
        {"&#31;&#32;&#126;&#127;&#128;", "?&#32;&#126;?&#128;"}, {"&#x7e;&#x7f;&#x80;&#x0a;&#x0b;", "&#x7e;?&#x80;&#x0a;?"},
        {"&#0000065;&#00001;", "&#0000065;?"}, {"&#4294967295;&#4294967296;", "&#4294967295;?"},
        {"&#xFFFFFFFF;&#x100000000;", "&#xFFFFFFFF;?"}, {"&#99999999999999999999999999999999999999;", "?"},
        {"&#-1;", "&#-1;"}, {"&#+9;&#+8;", "&#+9;?"}, {"&#12abc;&#65abc;", "?&#65abc;"},
        {"ab\0cd"s, "ab"}, {"a&#1;\0&#1;"s, "a?"}, {"&#1\0;"s, "&#1"}};
    for (const auto& [input, output] : cases)
        EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(input), output) << input;
}

} // namespace

// Allocation counting: every operator new of the process goes through these. Every other form
// forwards to the first four, so that a tool that intercepts them (valgrind does) sees matching
// pairs; none is inlined, so every call reaches the symbol such a tool replaces.
#define TARN_TEST_REPLACED __attribute__((noinline))
TARN_TEST_REPLACED void* operator new(std::size_t size) { return countedAllocate(size); }
TARN_TEST_REPLACED void* operator new[](std::size_t size) { return countedAllocate(size); }
TARN_TEST_REPLACED void operator delete(void* p) noexcept { std::free(p); }
TARN_TEST_REPLACED void operator delete[](void* p) noexcept { std::free(p); }
TARN_TEST_REPLACED void* operator new(std::size_t n, const std::nothrow_t&) noexcept { try { return ::operator new(n); } catch (...) { return nullptr; } }
TARN_TEST_REPLACED void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { try { return ::operator new[](n); } catch (...) { return nullptr; } }
TARN_TEST_REPLACED void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }
TARN_TEST_REPLACED void operator delete[](void* p, std::size_t) noexcept { ::operator delete[](p); }
