// The input gate: the validator equals a plain byte-table walk, sanitize's output always passes
// the validator, and the numeric-reference clean-up leaves no reference to a control character.
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "tarnxml/XmlHelper.h"

namespace {

// Written independently of the library: Unicode's well-formed byte sequences, plus the rule
// that one-byte characters are printable ASCII, tab, line feed or carriage return.
bool referenceValid(const unsigned char* p, std::size_t n)
{
    if (n == 0)
        return false;
    for (std::size_t i = 0; i < n;) {
        const unsigned c = p[i];
        if (c < 0x80) {
            if ((c < 0x20 && c != 9 && c != 10 && c != 13) || c == 0x7F)
                return false;
            ++i;
            continue;
        }
        unsigned len, lo = 0x80, hi = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) len = 2;
        else if (c == 0xE0) { len = 3; lo = 0xA0; }
        else if (c == 0xED) { len = 3; hi = 0x9F; }
        else if (c >= 0xE1 && c <= 0xEF) len = 3;
        else if (c == 0xF0) { len = 4; lo = 0x90; }
        else if (c == 0xF4) { len = 4; hi = 0x8F; }
        else if (c >= 0xF1 && c <= 0xF3) len = 4;
        else return false;
        if (i + len > n) return false;
        if (p[i + 1] < lo || p[i + 1] > hi) return false;
        for (unsigned k = 2; k < len; ++k)
            if (p[i + k] < 0x80 || p[i + k] > 0xBF) return false;
        i += len;
    }
    return true;
}

// Walks the text as the clean-up does (each "&#" up to the next ";", resuming after it) and
// tells whether any reference there names a disallowed value.
bool holdsDisallowedReference(const std::string& s)
{
    const char* p = std::strstr(s.c_str(), "&#");
    while (p) {
        const char* semicolon = std::strchr(p, ';');
        if (!semicolon)
            return false;
        const bool hex = p[2] == 'x';
        const char* q = p + (hex ? 3 : 2);
        while (*q == ' ' || (*q >= '\t' && *q <= '\r')) ++q;
        bool negative = false;
        if (*q == '+' || *q == '-') { negative = *q == '-'; ++q; }
        // strtoul with base 16 takes a "0x" prefix when a hexadecimal digit follows it.
        if (hex && q[0] == '0' && (q[1] == 'x' || q[1] == 'X') && std::isxdigit(static_cast<unsigned char>(q[2])))
            q += 2;
        std::uint64_t v = 0;
        bool big = false;
        for (;; ++q) {
            int d;
            if (*q >= '0' && *q <= '9') d = *q - '0';
            else if (hex && *q >= 'a' && *q <= 'f') d = *q - 'a' + 10;
            else if (hex && *q >= 'A' && *q <= 'F') d = *q - 'A' + 10;
            else break;
            if (!big) { v = v * (hex ? 16 : 10) + static_cast<unsigned>(d); if (v > 0xFFFFFFFFu) big = true; }
        }
        std::uint32_t value = static_cast<std::uint32_t>(v);
        if (negative) value = 0u - value;
        if (big || (value <= 0x7F && !((value >= 0x20 && value <= 0x7E) || value == 9 || value == 10 || value == 13)))
            return true;
        p = std::strstr(semicolon + 1, "&#");
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const char* text = reinterpret_cast<const char*>(data);
    const auto n = static_cast<unsigned int>(size);
    FUZZ_CHECK(XmlHelper::isValidUTF8(text, n) == referenceValid(data, size));

    std::string scratch;
    const XmlHelper::TextView view = XmlHelper::sanitize(text, n, scratch);
    FUZZ_CHECK(view.size == 0 || XmlHelper::isValidUTF8(view.data, view.size));
    if (referenceValid(data, size))
        FUZZ_CHECK(view.data == text && view.size == n);

    const std::string cleaned = XmlHelper::replaceInvalidNumericEncodings(std::string(text, size));
    FUZZ_CHECK(!holdsDisallowedReference(cleaned));
    return 0;
}
