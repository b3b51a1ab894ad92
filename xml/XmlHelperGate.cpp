// The input gate: UTF-8 validation, repair, and clean-up of numeric character references.
#include "tarnxml/XmlHelper.h"

#include "Utf8Validate.h"
#include "tarn/shared.h"

#include <utf8.h>

#include <cstdint>
#include <cstring>
#include <iterator>

namespace XmlHelper {

namespace {
const char kEmptyText[] = "";

// Whether the input ends inside a character: a lead byte (by utfcpp's reading of its bit pattern)
// followed only by continuation bytes, fewer than its length asks for. utf8::replace_invalid always
// reaches such a lead byte as the start of a sequence, since no sequence before it can take it in.
bool endsInsideCharacter(const unsigned char* data, std::size_t size)
{
    for (std::size_t back = 1; back <= 3 && back <= size; ++back) {
        const unsigned char b = data[size - back];
        if ((b & 0xC0) == 0x80)
            continue; // a continuation byte: look further back
        const std::size_t length = (b & 0xE0) == 0xC0 ? 2 : (b & 0xF0) == 0xE0 ? 3 : (b & 0xF8) == 0xF0 ? 4 : 0;
        return length > back;
    }
    return false;
}
} // namespace

bool isValidUTF8(const char* data, unsigned int size) noexcept
{
    if (!data || size == 0)
        return false;
    return tarn::detail::utf8Valid(reinterpret_cast<const unsigned char*>(data), size);
}

bool isValidUTF8(const char* text) noexcept
{
    if (!text)
        return false;
    return isValidUTF8(text, static_cast<unsigned int>(std::strlen(text)));
}

bool isValidUTF8(const std::string& text) noexcept
{
    return isValidUTF8(text.data(), static_cast<unsigned int>(text.size()));
}

TextView sanitize(const char* data, unsigned int size, std::string& scratch) noexcept
{
    if (!data || size == 0)
        return TextView{kEmptyText, 0};
    if (isValidUTF8(data, size))
        return TextView{data, size};
    try {
        scratch.clear();
        try {
            utf8::replace_invalid(data, data + size, std::back_inserter(scratch), 0xFFFDu);
            // A sequence cut off at the end is dropped without a marker. Older utfcpp releases
            // raise utf8::not_enough_room there (handled below); newer ones append one U+FFFD
            // and stop, which is taken back here.
            static const char kMarker[] = "\xEF\xBF\xBD";
            if (endsInsideCharacter(reinterpret_cast<const unsigned char*>(data), size) &&
                scratch.size() >= 3 && scratch.compare(scratch.size() - 3, 3, kMarker) == 0)
                scratch.resize(scratch.size() - 3);
        } catch (...) {
            // A sequence cut off at the end (utf8::not_enough_room), or no memory: keep what was
            // appended so far.
        }
        replace_nonprintable(scratch, "?", false);
    } catch (...) {
    }
    return TextView{scratch.c_str(), static_cast<unsigned int>(scratch.size())};
}

TextView sanitize(const char* text, std::string& scratch) noexcept
{
    if (!text)
        return TextView{kEmptyText, 0};
    return sanitize(text, static_cast<unsigned int>(std::strlen(text)), scratch);
}

TextView sanitize(const std::string& text, std::string& scratch) noexcept
{
    return sanitize(text.data(), static_cast<unsigned int>(text.size()), scratch);
}

namespace {

// strtoul's reading, without its locale and errno: leading white space, an optional sign, digits
// of the base. `fits` is false when the magnitude does not fit in 32 bits; a minus sign wraps the
// value modulo 2^32 as strtoul does.
std::uint32_t readUnsigned(const char* p, int base, bool& fits)
{
    while (*p == ' ' || (*p >= '\t' && *p <= '\r'))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    std::uint64_t value = 0;
    fits = true;
    for (;; ++p) {
        int digit;
        const char c = *p;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            break;
        if (digit >= base)
            break;
        if (fits) {
            value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
            if (value > 0xFFFFFFFFu)
                fits = false;
        }
    }
    const auto result = static_cast<std::uint32_t>(value);
    return negative ? static_cast<std::uint32_t>(0u - result) : result;
}

bool allowedReference(std::uint32_t value, bool fits)
{
    if (!fits)
        return false;
    if (value > 0x7F)
        return true;
    return (value >= 0x20 && value <= 0x7E) || value == 9 || value == 10 || value == 13;
}

} // namespace

std::string replaceInvalidNumericEncodings(const std::string& text)
{
    const char* s = text.c_str();
    const char* match = std::strstr(s, "&#");
    if (!match)
        return std::string(s);
    std::string out;
    const char* copyMark = s;
    bool replaced = false;
    while (match) {
        const char* semicolon = std::strchr(match, ';');
        if (!semicolon)
            break;
        const bool hex = match[2] == 'x';
        bool fits = true;
        const std::uint32_t value = readUnsigned(match + (hex ? 3 : 2), hex ? 16 : 10, fits);
        if (!allowedReference(value, fits)) {
            if (!replaced)
                out.reserve(text.size());
            out.append(copyMark, match);
            out += '?';
            copyMark = semicolon + 1;
            replaced = true;
        }
        match = std::strstr(semicolon + 1, "&#");
    }
    if (!replaced)
        return std::string(s);
    out.append(copyMark);
    return out;
}

} // namespace XmlHelper
