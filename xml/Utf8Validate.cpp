#include "Utf8Validate.h"

namespace tarn {
namespace detail {

bool utf8ValidScalar(const unsigned char* data, std::size_t size)
{
    std::size_t i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            if (lead < 0x20 ? !(lead == 0x09 || lead == 0x0A || lead == 0x0D) : lead == 0x7F)
                return false;
            ++i;
            continue;
        }
        std::size_t length;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead == 0xE0) {
            length = 3;
            low = 0xA0;
        } else if ((lead >= 0xE1 && lead <= 0xEC) || lead == 0xEE || lead == 0xEF) {
            length = 3;
        } else if (lead == 0xED) {
            length = 3;
            high = 0x9F;
        } else if (lead == 0xF0) {
            length = 4;
            low = 0x90;
        } else if (lead >= 0xF1 && lead <= 0xF3) {
            length = 4;
        } else if (lead == 0xF4) {
            length = 4;
            high = 0x8F;
        } else {
            return false;
        }
        if (i + length - 1 >= size)
            return false;
        if (data[i + 1] < low || data[i + 1] > high)
            return false;
        for (std::size_t k = 2; k < length; ++k) {
            if (data[i + k] < 0x80 || data[i + k] > 0xBF)
                return false;
        }
        i += length;
    }
    return true;
}

bool utf8Valid(const unsigned char* data, std::size_t size) { return utf8ValidScalar(data, size); }

} // namespace detail
} // namespace tarn
