// Entity encoding and decoding: UTF-8 text to pure-ASCII character data and back.
#include "tarnxml/XmlHelper.h"

#include "NumericReference.h"

#include <utf8.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

namespace XmlHelper {

namespace {

// The entity table, made when the library is loaded and shared by both directions: encoding
// writes these texts, decoding matches them (in this order) and skips their length.
const std::string kAmpEntity("&amp;");
const std::string kLtEntity("&lt;");
const std::string kGtEntity("&gt;");
const std::string kAposEntity("&apos;");
const std::string kQuotEntity("&quot;");

// What the encoder does with each byte value when it starts a character.
enum ByteClass : unsigned char {
    kPlain = 0,   // printable ASCII other than the five markup characters: copied as it is
    kEntity = 1,  // one of the five markup characters: its entity text
    kControl = 2, // below 0x20 or 0x7F (the zero byte ends the input): a numeric reference
    kMultiByte = 3, // 0x80 and above: decoded by utf8::next, then a numeric reference
};

struct ByteClassTable {
    unsigned char cls[256];
    constexpr ByteClassTable() : cls()
    {
        for (int b = 0; b < 256; ++b) {
            if (b < 0x20 || b == 0x7F)
                cls[b] = kControl;
            else if (b >= 0x80)
                cls[b] = kMultiByte;
            else if (b == '&' || b == '<' || b == '>' || b == '\'' || b == '"')
                cls[b] = kEntity;
            else
                cls[b] = kPlain;
        }
    }
};
constexpr ByteClassTable kByteClass{};

const std::string& entityFor(unsigned char c)
{
    switch (c) {
    case '&':
        return kAmpEntity;
    case '<':
        return kLtEntity;
    case '>':
        return kGtEntity;
    case '\'':
        return kAposEntity;
    default:
        return kQuotEntity;
    }
}

// The longest piece written for one character: "&#x10FFFF;".
constexpr std::size_t kMaxPiece = 10;

// Output written through a raw pointer into a std::string that grows geometrically; the string is
// cut to the written length at the end. Appending piece by piece to the string itself costs a
// capacity check and a size update per piece, which dominates on text with many references.
class OutBuffer {
public:
    explicit OutBuffer(std::size_t expected)
    {
        text_.resize(expected < 32 ? 32 : expected);
        pos_ = &text_[0];
        end_ = pos_ + text_.size();
    }

    // Makes room for `n` more bytes.
    void reserve(std::size_t n)
    {
        if (static_cast<std::size_t>(end_ - pos_) >= n)
            return;
        const std::size_t used = static_cast<std::size_t>(pos_ - &text_[0]);
        std::size_t size = text_.size() * 2;
        if (size < used + n)
            size = used + n;
        text_.resize(size);
        pos_ = &text_[0] + used;
        end_ = &text_[0] + text_.size();
    }

    // Callers reserve first.
    void put(const char* data, std::size_t n)
    {
        std::memcpy(pos_, data, n);
        pos_ += n;
    }

    // "&#x" + upper-case hexadecimal without leading zeros + ";". Callers reserve kMaxPiece.
    void putReference(std::uint32_t cp)
    {
        static const char kHex[] = "0123456789ABCDEF";
        char digits[8];
        int count = 0;
        do {
            digits[count++] = kHex[cp & 0xF];
            cp >>= 4;
        } while (cp != 0);
        *pos_++ = '&';
        *pos_++ = '#';
        *pos_++ = 'x';
        while (count > 0)
            *pos_++ = digits[--count];
        *pos_++ = ';';
    }

    std::string take()
    {
        text_.resize(static_cast<std::size_t>(pos_ - &text_[0]));
        return std::move(text_);
    }

private:
    std::string text_;
    char* pos_;
    char* end_;
};

// The shared encoding routine. `data[0]` is not zero and `size` is not zero. The input ends at
// data + size or at the first zero byte that starts a character, whichever comes first (for
// both public overloads data[size] is itself a zero byte, so the two conditions agree).
std::string encode(const char* data, std::size_t size)
{
    const unsigned char* pos = reinterpret_cast<const unsigned char*>(data);
    const unsigned char* const end = pos + size;
    // Mostly-ASCII text grows a little; the buffer doubles when it does not fit.
    OutBuffer out(size + size / 8 + kMaxPiece);
    try {
        while (pos != end) {
            const unsigned char lead = *pos;
            switch (kByteClass.cls[lead]) {
            case kPlain: {
                // A run of plain printable ASCII is copied in one go. The zero byte is a control
                // byte, so the run also stops there.
                const unsigned char* run = pos + 1;
                while (run != end && kByteClass.cls[*run] == kPlain)
                    ++run;
                const std::size_t n = static_cast<std::size_t>(run - pos);
                out.reserve(n);
                out.put(reinterpret_cast<const char*>(pos), n);
                pos = run;
                break;
            }
            case kEntity: {
                const std::string& entity = entityFor(lead);
                out.reserve(kMaxPiece);
                out.put(entity.data(), entity.size());
                ++pos;
                break;
            }
            case kControl:
                if (lead == 0)
                    return out.take(); // a zero byte ends the input
                out.reserve(kMaxPiece);
                out.putReference(lead);
                ++pos;
                break;
            default: {
                // utf8::next validates the whole sequence and advances past it; it throws
                // invalid_utf8 / invalid_code_point to our caller, and not_enough_room when
                // the input ends inside the sequence.
                const std::uint32_t cp = utf8::next(pos, end);
                out.reserve(kMaxPiece);
                out.putReference(cp);
                break;
            }
            }
        }
    } catch (const utf8::not_enough_room&) {
        // The input ends inside a multi-byte sequence: that sequence is dropped and what was
        // encoded so far is the result.
    }
    return out.take();
}

// --- Decoding -------------------------------------------------------------------------------------

constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

bool startsWith(const char* p, std::size_t left, const std::string& entity)
{
    return left >= entity.size() && std::memcmp(p, entity.data(), entity.size()) == 0;
}

std::string decode(const char* text)
{
    const std::size_t length = std::strlen(text);
    std::string out;
    if (length == 0)
        return out;
    // No reference is shorter than what it decodes to, so the result never outgrows the input.
    out.reserve(length);
    const char* pos = text;
    const char* const end = text + length;
    // The first ";" at or after `semicolonFrom`, cached so that a long text full of "&#" without
    // a ";" is not searched again from every "&" (null: there is none from there on).
    const char* semicolon = nullptr;
    const char* semicolonFrom = text;
    bool semicolonKnown = false;

    while (pos != end) {
        const char* amp = static_cast<const char*>(std::memchr(pos, '&', static_cast<std::size_t>(end - pos)));
        if (!amp) {
            out.append(pos, end);
            break;
        }
        out.append(pos, amp);
        const std::size_t left = static_cast<std::size_t>(end - amp);
        if (startsWith(amp, left, kAmpEntity)) {
            out.push_back('&');
            pos = amp + kAmpEntity.size();
            continue;
        }
        if (startsWith(amp, left, kLtEntity)) {
            out.push_back('<');
            pos = amp + kLtEntity.size();
            continue;
        }
        if (startsWith(amp, left, kGtEntity)) {
            out.push_back('>');
            pos = amp + kGtEntity.size();
            continue;
        }
        if (startsWith(amp, left, kAposEntity)) {
            out.push_back('\'');
            pos = amp + kAposEntity.size();
            continue;
        }
        if (startsWith(amp, left, kQuotEntity)) {
            out.push_back('"');
            pos = amp + kQuotEntity.size();
            continue;
        }
        if (amp[1] == '#') {
            if (!semicolonKnown || (semicolon && semicolon <= amp)) {
                semicolonFrom = amp + 1;
                semicolon = static_cast<const char*>(
                    std::memchr(semicolonFrom, ';', static_cast<std::size_t>(end - semicolonFrom)));
                semicolonKnown = true;
            }
            if (semicolon) {
                const unsigned char* digits = reinterpret_cast<const unsigned char*>(amp + 2);
                int base = 10;
                if (*digits == 'x') { // only a lower-case x selects hexadecimal
                    base = 16;
                    ++digits;
                }
                std::uint32_t value = 0;
                if (!tarn::detail::readReferenceNumber(digits, base, value))
                    value = kReplacementCharacter;
                // utf8::append throws invalid_code_point for surrogates and values above
                // U+10FFFF; those become U+FFFD, checked here so that hostile input cannot make
                // decoding throw and catch once per reference.
                if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
                    value = kReplacementCharacter;
                utf8::append(value, std::back_inserter(out));
                // Whatever lies between the number and the ";" is dropped.
                pos = semicolon + 1;
                continue;
            }
        }
        out.push_back('&');
        pos = amp + 1;
    }
    return out;
}

} // namespace

std::string XmlEncode(const char* text)
{
    if (!text || text[0] == '\0')
        return std::string();
    return encode(text, std::strlen(text));
}

std::string XmlEncode(const std::string& text)
{
    if (text.empty())
        return std::string();
    return encode(text.data(), text.size());
}

std::string XmlDecode(const char* text)
{
    if (!text)
        return std::string();
    return decode(text);
}

std::string XmlDecode(const std::string& text)
{
    // Read as a zero-terminated string: a zero byte inside the text ends it.
    return decode(text.c_str());
}

} // namespace XmlHelper
