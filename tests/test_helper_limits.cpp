// Helper functions at their limits: the one reading of numeric references shared by decoding and
// the reference clean-up, and texts too large for the gate's 32-bit counts.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <new>
#include <string>

#include <utf8.h>

#include "TestSupport.h"
#include "tarnxml/XmlHelper.h"

namespace {

// The number after "&#" read by the rules of strtoul (32-bit): white space, a sign, for base 16 a
// "0x" prefix when a digit follows it; a minus wraps modulo 2^32. XmlDecode and
// replaceInvalidNumericEncodings must agree on every one.
TEST(NumericReference, DecodeAndCleanUpReadTheNumberAlike)
{
    constexpr std::int64_t kTooLarge = -1;
    struct Case { const char* number; std::int64_t value; };
    const Case cases[] = {
        {"x0x41", 0x41}, {"x0X7f", 0x7F}, {"x+0x0A", 10}, {"x -0x1f", 0xFFFFFFE1}, {"x0x", 0}, {"x0xg", 0},
        {" 65", 65}, {"\t+66", 66}, {"\v\f\r\n67", 67}, {"0x41", 0}, {"-1", 0xFFFFFFFF},
        {"-4294967295", 1}, {"00000000000000000000065", 65}, {"4294967295", 0xFFFFFFFF},
        {"4294967296", kTooLarge}, {"x100000000", kTooLarge}, {"-4294967296", kTooLarge},
        {"X41", 0}, {"", 0}, {"x", 0}, {"12ab", 12}, {"xFfz", 0xFF}};
    for (const Case& c : cases) {
        const std::string reference = std::string("<&#") + c.number + ";>";
        SCOPED_TRACE(reference);
        std::string decoded = "<";
        const bool scalar = c.value >= 0 && c.value <= 0x10FFFF && (c.value < 0xD800 || c.value > 0xDFFF);
        utf8::append(scalar ? static_cast<std::uint32_t>(c.value) : 0xFFFDu, std::back_inserter(decoded));
        EXPECT_EQ(XmlHelper::XmlDecode(reference), decoded + ">");
        const bool allowed = c.value > 0x7F || (c.value >= 0x20 && c.value <= 0x7E) || c.value == 9 || c.value == 10
                          || c.value == 13;
        EXPECT_EQ(XmlHelper::replaceInvalidNumericEncodings(reference), allowed ? reference : "<?>");
    }
}

// A text whose size does not fit the gate's 32-bit count is refused whole (not valid, an empty
// view), never cut to its size modulo 2^32. Needs 4 GiB: in the slow run only, on 64-bit.
TEST(LargeInput, SlowTextsBeyondFourGiBAreRefusedNotCut)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "4 GiB with ThreadSanitizer's shadow memory is too much";
#endif
    if (sizeof(std::size_t) <= sizeof(unsigned int) || tarntest::quick())
        GTEST_SKIP() << "needs a 64-bit build and 4 GiB of memory";
    std::string huge;
    try {
        // 2^32 + 1 bytes: cut to 32 bits, the text would be the single valid "a".
        huge.assign(std::size_t{UINT_MAX} + 2, 'a');
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "4 GiB could not be allocated";
    }
    EXPECT_FALSE(XmlHelper::isValidUTF8(huge));
    std::string scratch = "untouched";
    const XmlHelper::TextView view = XmlHelper::sanitize(huge, scratch);
    EXPECT_EQ(view.size, 0u);
    EXPECT_EQ(scratch, "untouched");
    EXPECT_FALSE(XmlHelper::isValidUTF8(huge.c_str()));
    EXPECT_EQ(XmlHelper::sanitize(huge.c_str(), scratch).size, 0u);
}

} // namespace
