#include "tarn/crypto.h"

#include <boost/system/error_code.hpp>

namespace tarn {
namespace crypto {

std::string base64Encode(const unsigned char* bytes, unsigned int count, bool lineBreaks,
                         boost::system::error_code& error)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    if (count == 0)
        return out;
    if (!bytes) {
        error = boost::system::errc::make_error_code(boost::system::errc::invalid_argument);
        return out;
    }
    const std::size_t encoded = (static_cast<std::size_t>(count) + 2) / 3 * 4;
    out.reserve(encoded + (lineBreaks ? encoded / 76 : 0));
    std::size_t column = 0;
    auto put = [&](char c) {
        if (lineBreaks && column == 76) {
            out += '\n';
            column = 0;
        }
        out += c;
        ++column;
    };
    unsigned int i = 0;
    for (; i + 3 <= count; i += 3) {
        const unsigned v = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        put(alphabet[(v >> 18) & 63]);
        put(alphabet[(v >> 12) & 63]);
        put(alphabet[(v >> 6) & 63]);
        put(alphabet[v & 63]);
    }
    if (const unsigned rest = count - i) {
        const unsigned v = (bytes[i] << 16) | (rest == 2 ? bytes[i + 1] << 8 : 0);
        put(alphabet[(v >> 18) & 63]);
        put(alphabet[(v >> 12) & 63]);
        put(rest == 2 ? alphabet[(v >> 6) & 63] : '=');
        put('=');
    }
    return out;
}

std::string hexEncode(const unsigned char* bytes, unsigned int count, bool upperCase,
                      boost::system::error_code& error)
{
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string out;
    if (count == 0)
        return out;
    if (!bytes) {
        error = boost::system::errc::make_error_code(boost::system::errc::invalid_argument);
        return out;
    }
    out.resize(static_cast<std::size_t>(count) * 2);
    for (unsigned int i = 0; i < count; ++i) {
        out[2 * i] = digits[bytes[i] >> 4];
        out[2 * i + 1] = digits[bytes[i] & 15];
    }
    return out;
}

} // namespace crypto
} // namespace tarn
