// The numeric character reference reader; see NumericReference.h.
#include "NumericReference.h"

namespace tarn {
namespace detail {

namespace {

bool isStrtoulSpace(unsigned char c)
{
    // isspace of the "C" locale; the library never depends on the process locale.
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

int digitValue(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return 99;
}

} // namespace

bool readReferenceNumber(const unsigned char* p, int base, std::uint32_t& value)
{
    while (isStrtoulSpace(*p))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    if (base == 16 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && digitValue(p[2]) < 16)
        p += 2;
    std::uint64_t magnitude = 0;
    bool overflow = false;
    for (int d = digitValue(*p); d < base; d = digitValue(*++p)) {
        // Once past 32 bits the value only matters as "too large"; stop growing it so that the
        // 64-bit accumulator cannot wrap on long digit strings.
        if (!overflow) {
            magnitude = magnitude * static_cast<unsigned>(base) + static_cast<unsigned>(d);
            overflow = magnitude > 0xFFFFFFFFu;
        }
    }
    if (overflow)
        return false;
    const std::uint32_t low = static_cast<std::uint32_t>(magnitude);
    value = negative ? static_cast<std::uint32_t>(0u - low) : low;
    return true;
}

} // namespace detail
} // namespace tarn
