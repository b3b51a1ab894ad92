// The input gate through the public API: the acceptance test, repair by sanitize, and the clean-up
// of numeric character references. Inputs sit in heap buffers of exactly their size, so a read past
// the count trips AddressSanitizer. This binary replaces the global operator new to prove that the
// valid path of sanitize allocates nothing.
#include "TestSupport.h"
#include "tarnxml/XmlHelper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------------------------
// Allocation counting: every operator new of the process goes through here.

namespace {
std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void* countedAllocate(std::size_t size)
{
    if (g_counting.load(std::memory_order_relaxed))
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
} // namespace

// Every other form forwards to these four, so that a tool that intercepts them (valgrind does)
// sees matching pairs; none is inlined, so every call reaches the symbol such a tool replaces.
#define TARN_TEST_REPLACED __attribute__((noinline))
TARN_TEST_REPLACED void* operator new(std::size_t size) { return countedAllocate(size); }
TARN_TEST_REPLACED void* operator new[](std::size_t size) { return countedAllocate(size); }
TARN_TEST_REPLACED void operator delete(void* p) noexcept { std::free(p); }
TARN_TEST_REPLACED void operator delete[](void* p) noexcept { std::free(p); }
TARN_TEST_REPLACED void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}
TARN_TEST_REPLACED void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}
TARN_TEST_REPLACED void operator delete(void* p, std::size_t) noexcept { ::operator delete(p); }
TARN_TEST_REPLACED void operator delete[](void* p, std::size_t) noexcept { ::operator delete[](p); }

namespace {

// Counts the allocations made while alive (on any thread; the tests start none).
class AllocationCounter {
public:
    AllocationCounter()
    {
        g_allocations = 0;
        g_counting = true;
    }
    ~AllocationCounter() { g_counting = false; }
    long count() const { return g_allocations.load(); }
};

// False when a tool such as valgrind has put its own operator new in place of this file's.
bool countingWorks()
{
    AllocationCounter counter;
    void* volatile probe = ::operator new(64); // volatile: the pair may not be optimised away
    ::operator delete(probe);
    return counter.count() == 1;
}

using Bytes = std::vector<unsigned char>;

// An exactly sized heap copy of some bytes.
class Exact {
public:
    explicit Exact(const Bytes& bytes) : size_(static_cast<unsigned>(bytes.size())), data_(new char[bytes.size()])
    {
        if (!bytes.empty())
            std::memcpy(data_.get(), bytes.data(), bytes.size());
    }
    const char* data() const { return data_.get(); }
    unsigned size() const { return size_; }

private:
    unsigned size_;
    std::unique_ptr<char[]> data_;
};

Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }
std::string textOf(const Bytes& b) { return std::string(b.begin(), b.end()); }

std::string hex(const std::string& s)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : s) {
        if (!out.empty())
            out += ' ';
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// isValidUTF8

TEST(IsValidUtf8, NullAndEmptyAreRefused)
{
    EXPECT_FALSE(XmlHelper::isValidUTF8(nullptr, 0u));
    EXPECT_FALSE(XmlHelper::isValidUTF8(nullptr, 5u));
    EXPECT_FALSE(XmlHelper::isValidUTF8("abc", 0u));
    EXPECT_FALSE(XmlHelper::isValidUTF8(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(XmlHelper::isValidUTF8(""));
    EXPECT_FALSE(XmlHelper::isValidUTF8(std::string()));
}

struct ValidityCase {
    Bytes bytes;
    bool valid;
};

const ValidityCase kValidityCases[] = {
    {{'a', 'b', 'c'}, true},
    {{'a', '\t', 'b', '\r', '\n'}, true},
    {{' ', '~'}, true},
    {{0x01}, false},
    {{'a', 0x7F}, false},
    {{'a', 0x00, 'b'}, false},
    {{0x1F}, false},
    {{0x0B}, false},
    {{0xC2, 0xA9}, true},
    {{0xE0, 0xA0, 0x80}, true},
    {{0xED, 0x9F, 0xBF}, true},
    {{0xEF, 0xBF, 0xBF}, true}, // a noncharacter, still accepted
    {{0xEF, 0xBF, 0xBE}, true},
    {{0xF0, 0x90, 0x80, 0x80}, true},
    {{0xF4, 0x8F, 0xBF, 0xBF}, true},
    {{0xC0, 0x80}, false},
    {{0xC1, 0xBF}, false},
    {{0xE0, 0x80, 0x80}, false},
    {{0xED, 0xA0, 0x80}, false},
    {{0xF4, 0x90, 0x80, 0x80}, false},
    {{0xF5, 0x80, 0x80, 0x80}, false},
    {{0x80}, false},
    {{'a', 0xC2}, false},
    {{'a', 0xE2, 0x82}, false},
    {{0xF0, 0x9F, 0x98}, false},
    {{0xFF}, false},
    {{0xC3, 0xA9, 0xA9}, false},
};

TEST(IsValidUtf8, KnownInputsThroughEveryOverload)
{
    for (const ValidityCase& c : kValidityCases) {
        const std::string text = textOf(c.bytes);
        SCOPED_TRACE(hex(text));
        const Exact exact(c.bytes);
        EXPECT_EQ(XmlHelper::isValidUTF8(exact.data(), exact.size()), c.valid);
        EXPECT_EQ(XmlHelper::isValidUTF8(text), c.valid);
        // The zero-terminated overload stops at the first zero byte.
        const std::string untilZero = text.substr(0, text.find('\0'));
        EXPECT_EQ(XmlHelper::isValidUTF8(text.c_str()), !untilZero.empty() && XmlHelper::isValidUTF8(untilZero));
    }
}

// The count decides, not the zero terminator: a count that cuts a character in two refuses it, and
// bytes after the count are not looked at.
TEST(IsValidUtf8, OnlyTheCountedBytesAreRead)
{
    const std::string text = "caf\xC3\xA9\x01";
    EXPECT_TRUE(XmlHelper::isValidUTF8(text.data(), 5u));
    EXPECT_FALSE(XmlHelper::isValidUTF8(text.data(), 4u));
    EXPECT_FALSE(XmlHelper::isValidUTF8(text.data(), 6u));
    EXPECT_TRUE(XmlHelper::isValidUTF8(text.data(), 3u));
}

// Long texts go through the vector paths: a fault anywhere, at the end included, is found.
TEST(IsValidUtf8, LongTextsWithOneFault)
{
    std::string text;
    while (text.size() < 5000)
        text += "<item name=\"caf\xC3\xA9\">\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80</item>\n";
    ASSERT_TRUE(XmlHelper::isValidUTF8(text));
    const char* const faults[] = {"\x01", "\x7F", "\x80", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80"};
    for (const char* fault : faults) {
        for (std::size_t at : {std::size_t{0}, std::size_t{31}, std::size_t{64}, text.size() / 2,
                               text.size() - 1, text.size()}) {
            std::string damaged = text;
            damaged.insert(at, fault);
            SCOPED_TRACE(hex(fault) + " at " + std::to_string(at));
            const Exact exact(bytesOf(damaged));
            EXPECT_FALSE(XmlHelper::isValidUTF8(exact.data(), exact.size()));
        }
    }
    for (std::size_t cut = 1; cut <= 3; ++cut) {
        // The text ends with the four bytes of an emoji and "</item>\n": cut into the emoji.
        const std::string truncated = text.substr(0, text.size() - 8 - cut);
        SCOPED_TRACE(cut);
        EXPECT_FALSE(XmlHelper::isValidUTF8(truncated));
    }
}

// ---------------------------------------------------------------------------------------------
// sanitize

TEST(Sanitize, NullAndEmptyGiveTheEmptyViewAndLeaveTheScratchAlone)
{
    std::string scratch = "kept";
    const XmlHelper::TextView views[] = {
        XmlHelper::sanitize(nullptr, 4u, scratch),
        XmlHelper::sanitize("abc", 0u, scratch),
        XmlHelper::sanitize(static_cast<const char*>(nullptr), scratch),
        XmlHelper::sanitize("", scratch),
        XmlHelper::sanitize(std::string(), scratch),
    };
    for (const XmlHelper::TextView& view : views) {
        ASSERT_NE(view.data, nullptr);
        EXPECT_EQ(view.size, 0u);
        EXPECT_EQ(view.data[0], '\0');
    }
    EXPECT_EQ(scratch, "kept");
}

TEST(Sanitize, ValidInputIsHandedBackAsItIs)
{
    std::string scratch = "kept";
    const std::string text = "<a b=\"\xC3\xA9\">\t\xE2\x82\xAC\r\n</a>";
    const XmlHelper::TextView fromText = XmlHelper::sanitize(text, scratch);
    EXPECT_EQ(fromText.data, text.data());
    EXPECT_EQ(fromText.size, text.size());
    const XmlHelper::TextView fromZero = XmlHelper::sanitize(text.c_str(), scratch);
    EXPECT_EQ(fromZero.data, text.c_str());
    EXPECT_EQ(fromZero.size, text.size());
    const Exact exact(bytesOf(text));
    const XmlHelper::TextView fromCount = XmlHelper::sanitize(exact.data(), exact.size(), scratch);
    EXPECT_EQ(fromCount.data, exact.data());
    EXPECT_EQ(fromCount.size, exact.size());
    EXPECT_EQ(scratch, "kept");
}

TEST(Sanitize, RepairsInvalidInput)
{
    struct Case {
        std::string input;
        std::string repaired;
    };
    const Case cases[] = {
        {"a\xFF" "b", "a\xEF\xBF\xBD" "b"},
        {"a\xC3", "a"},                      // cut off at the end: dropped without a marker
        {"a\xE2\x82", "a"},
        {"\xF0\x9F\x98", ""},
        {"\xE2\x82" "b\xC3", "\xEF\xBF\xBD" "b"},
        {"\xED\xA0\x80", "\xEF\xBF\xBD"},     // surrogate: one marker for the sequence
        {"\xC0\x80", "\xEF\xBF\xBD"},         // overlong
        {"\xF4\x90\x80\x80" "x", "\xEF\xBF\xBD" "x"},
        {"\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD"}, // two lone continuations: two markers
        {"\xE2\x82" "b", "\xEF\xBF\xBD" "b"}, // incomplete before other text
        {"a\x01\xC3\xA9", "a?\xC3\xA9"},      // valid UTF-8, refused control: only "?"
        {std::string("a\0b", 3), "a?b"},
        {"\x7F", "?"},
        {"x\x1F\xFFy\x0B", "x?\xEF\xBF\xBDy?"},
        {"tab\tcr\rlf\n\x01", "tab\tcr\rlf\n?"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(hex(c.input));
        const Exact exact(bytesOf(c.input));
        std::string scratch = "old content";
        const XmlHelper::TextView view = XmlHelper::sanitize(exact.data(), exact.size(), scratch);
        EXPECT_EQ(hex(std::string(view.data, view.size)), hex(c.repaired));
        EXPECT_EQ(view.data, scratch.c_str());
        EXPECT_EQ(view.size, scratch.size());
        EXPECT_EQ(view.data[view.size], '\0');
        if (view.size > 0) {
            EXPECT_TRUE(XmlHelper::isValidUTF8(view.data, view.size));
        }
    }
}

// Whatever comes in, sanitize returns normally with text that passes the acceptance test, and a
// second pass hands that text back untouched.
TEST(Sanitize, AnyInputComesOutValid)
{
    std::mt19937 rng(5);
    const unsigned char interesting[] = {0x00, 0x01, 0x09, 0x0A, 0x0D, 0x1F, 0x20, 0x41, 0x7F,
                                         0x80, 0xBF, 0xC0, 0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0,
                                         0xF4, 0xF5, 0xFF};
    std::string scratch;
    std::string again;
    for (long round = 0; round < tarntest::iterations(20000); ++round) {
        Bytes bytes(1 + rng() % 70);
        for (unsigned char& b : bytes)
            b = rng() % 2 ? interesting[rng() % sizeof interesting] : static_cast<unsigned char>(rng());
        const Exact exact(bytes);
        XmlHelper::TextView view{"", 0};
        EXPECT_NO_THROW(view = XmlHelper::sanitize(exact.data(), exact.size(), scratch));
        const std::string out(view.data, view.size);
        if (out.empty())
            continue;
        if (!XmlHelper::isValidUTF8(out)) {
            ADD_FAILURE() << "sanitize gave invalid text for " << hex(textOf(bytes)) << ": " << hex(out);
            break;
        }
        const XmlHelper::TextView second = XmlHelper::sanitize(out, again);
        EXPECT_EQ(second.data, out.data());
    }
}

// A character cut off by the end leaves no trace; with one more ASCII byte after it, the same
// bytes are an incomplete sequence and give one marker. So the repair of x is the repair of x + "A"
// without its final "A", or without a final marker and "A" when x ends inside a character.
TEST(Sanitize, CharacterCutOffAtTheEndIsDropped)
{
    std::mt19937 rng(11);
    const unsigned char tails[] = {0x80, 0xA0, 0xBF, 0xC0, 0xC2, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF7, 0xF8, 0x41};
    std::string scratch, scratchA;
    std::size_t dropped = 0;
    for (long round = 0; round < tarntest::iterations(5000); ++round) {
        Bytes bytes(rng() % 6);
        for (unsigned char& b : bytes)
            b = static_cast<unsigned char>(rng());
        for (unsigned k = rng() % 4; k > 0; --k)
            bytes.push_back(tails[rng() % sizeof tails]);
        if (bytes.empty())
            continue;
        const Exact exact(bytes);
        const XmlHelper::TextView view = XmlHelper::sanitize(exact.data(), exact.size(), scratch);
        const std::string out(view.data, view.size);
        const std::string withA = std::string(XmlHelper::sanitize(textOf(bytes) + "A", scratchA).view());
        ASSERT_EQ(withA.back(), 'A');
        const std::string plain = withA.substr(0, withA.size() - 1);
        if (out == plain)
            continue;
        ++dropped;
        ASSERT_GE(plain.size(), 3u);
        EXPECT_EQ(hex(out + "\xEF\xBF\xBD"), hex(plain)) << "input " << hex(textOf(bytes));
        EXPECT_GE(bytes.back(), 0x80) << "input " << hex(textOf(bytes));
    }
    EXPECT_GT(dropped, 0u);
}

TEST(Sanitize, ValidPathAllocatesNothing)
{
    if (!countingWorks())
        GTEST_SKIP() << "operator new is intercepted; allocations cannot be counted";
    std::string text;
    while (text.size() < 100000)
        text += "<entry lang=\"ja\">\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E</entry>\n\t<x y=\"1\"/>\r\n";
    std::string scratch;
    XmlHelper::sanitize(text, scratch); // first use picks the validator
    long allocations;
    XmlHelper::TextView a{"", 0}, b{"", 0}, c{"", 0};
    bool valid = false;
    {
        AllocationCounter counter;
        a = XmlHelper::sanitize(text, scratch);
        b = XmlHelper::sanitize(text.c_str(), scratch);
        c = XmlHelper::sanitize(text.data(), static_cast<unsigned>(text.size()), scratch);
        valid = XmlHelper::isValidUTF8(text);
        allocations = counter.count();
    }
    EXPECT_EQ(allocations, 0);
    EXPECT_TRUE(valid);
    EXPECT_EQ(a.data, text.data());
    EXPECT_EQ(b.data, text.data());
    EXPECT_EQ(c.data, text.data());
    EXPECT_EQ(scratch.capacity(), std::string().capacity());
}

// The counter itself works, and repair reuses the caller's scratch text: once it is large enough,
// repairing again allocates nothing.
TEST(Sanitize, RepairReusesTheScratchText)
{
    if (!countingWorks())
        GTEST_SKIP() << "operator new is intercepted; allocations cannot be counted";
    std::string text(4000, 'a');
    text[10] = '\x01';
    text[2000] = '\xFF';
    std::string scratch;
    long first;
    {
        AllocationCounter counter;
        XmlHelper::sanitize(text, scratch);
        first = counter.count();
    }
    EXPECT_GT(first, 0);
    long second;
    {
        AllocationCounter counter;
        XmlHelper::sanitize(text, scratch);
        second = counter.count();
    }
    EXPECT_EQ(second, 0);
    EXPECT_EQ(scratch.size(), text.size() + 2);
    EXPECT_EQ(scratch[10], '?');
}

// ---------------------------------------------------------------------------------------------
// replaceInvalidNumericEncodings

TEST(ReplaceInvalidNumericEncodings, Table)
{
    struct Case {
        std::string input;
        std::string output;
    };
    const Case cases[] = {
        {"", ""},
        {"plain text & more # signs", "plain text & more # signs"},
        {"&#1;", "?"},
        {"a&#x1F;b", "a?b"},
        {"&#9; &#10; &#13; &#65; &#200; &#xD800;", "&#9; &#10; &#13; &#65; &#200; &#xD800;"},
        {"&#X41;", "?"},                         // upper-case X: no decimal digits, value 0
        {"&#;", "?"},
        {"&#99999999999;", "?"},                 // does not fit in 32 bits
        {"&#1 x; y", "? y"},                     // everything up to the semicolon goes
        {"&#1", "&#1"},                          // no semicolon
        {"abc&#", "abc&#"},                      // "&#" at the very end
        {"&#", "&#"},
        {"&", "&"},
        {"&#1;&#2", "?&#2"},
        {"a&#1;b&#2;c", "a?b?c"},
        {"&#1;&#65;&#0;", "?&#65;?"},
        {"&#65&#1;", "&#65&#1;"},                // the search goes on after the semicolon
        {"&#31;&#32;&#126;&#127;&#128;", "?&#32;&#126;?&#128;"},
        {"&#x7e;&#x7f;&#x80;&#x0a;&#x0b;", "&#x7e;?&#x80;&#x0a;?"},
        {"&#0000065;&#00001;", "&#0000065;?"},
        {"&#4294967295;&#4294967296;", "&#4294967295;?"},
        {"&#xFFFFFFFF;&#x100000000;", "&#xFFFFFFFF;?"},
        {"&#99999999999999999999999999999999999999;", "?"},
        {"&#-1;", "&#-1;"},                      // read as strtoul does: wraps to 0xFFFFFFFF
        {"&#+9;&#+8;", "&#+9;?"},
        {"&# 7;", "?"},                          // leading white space is skipped
        {"&#x;", "?"},
        {"&#12abc;", "?"},                       // reading stops at the first non-digit
        {"&#65abc;", "&#65abc;"},
        {"\xC3\xA9&#8;\xE2\x82\xAC", "\xC3\xA9?\xE2\x82\xAC"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(c.input), c.output);
    }
}

// The text is read as a zero-terminated string: a zero byte ends it.
TEST(ReplaceInvalidNumericEncodings, StopsAtAZeroByte)
{
    EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(std::string("ab\0cd", 5)), "ab");
    EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(std::string("a&#1;\0&#1;", 10)), "a?");
    EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(std::string("&#1\0;", 5)), "&#1");
}

} // namespace
