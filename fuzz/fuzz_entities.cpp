// Entity encoding and decoding: decoding the encoding of valid UTF-8 without NUL gives it back;
// encoded text is printable ASCII; decoding accepts any bytes.
#include <cstdint>
#include <cstring>
#include <string>

#include <utf8.h>

#include "FuzzSupport.h"
#include "tarnxml/XmlHelper.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string decoded = XmlHelper::XmlDecode(input);  // must not throw on any bytes
    (void)decoded;

    const bool hasNul = std::memchr(data, 0, size) != nullptr;
    if (!hasNul && utf8::is_valid(input.begin(), input.end())) {
        const std::string encoded = XmlHelper::XmlEncode(input);
        for (const char c : encoded)
            FUZZ_CHECK(c >= 0x20 && c <= 0x7E);
        FUZZ_CHECK(XmlHelper::XmlDecode(encoded) == input);
    } else {
        try {
            (void)XmlHelper::XmlEncode(input);
        } catch (const utf8::exception&) {
            // Invalid UTF-8 is reported to the caller by utfcpp's exceptions.
        }
    }
    return 0;
}
