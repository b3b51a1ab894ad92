// The input gate: UTF-8 validation, repair, and clean-up of numeric character references.
#include "tarnxml/XmlHelper.h"

#include "NumericReference.h"
#include "Utf8Validate.h"
#include "tarn/shared.h"

#include <utf8.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace XmlHelper {

namespace {
const char kEmptyText[] = "";

// The gate counts bytes in 32 bits. A longer text is refused whole (reported as not fitting) rather
// than cut to its size modulo 2^32, which would hand a valid-looking prefix on.
bool fitsCount(std::size_t size) { return size <= std::numeric_limits<unsigned int>::max(); }

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
    const std::size_t size = std::strlen(text);
    return fitsCount(size) && isValidUTF8(text, static_cast<unsigned int>(size));
}

bool isValidUTF8(const std::string& text) noexcept
{
    return fitsCount(text.size()) && isValidUTF8(text.data(), static_cast<unsigned int>(text.size()));
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
    const std::size_t size = std::strlen(text);
    if (!fitsCount(size))
        return TextView{kEmptyText, 0};
    return sanitize(text, static_cast<unsigned int>(size), scratch);
}

TextView sanitize(const std::string& text, std::string& scratch) noexcept
{
    if (!fitsCount(text.size()))
        return TextView{kEmptyText, 0};
    return sanitize(text.data(), static_cast<unsigned int>(text.size()), scratch);
}

namespace {

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
        std::uint32_t value = 0;
        const bool fits = tarn::detail::readReferenceNumber(
            reinterpret_cast<const unsigned char*>(match + (hex ? 3 : 2)), hex ? 16 : 10, value);
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
