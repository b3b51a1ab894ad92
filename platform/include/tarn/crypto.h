#pragma once
// Stand-in for the product's libtarncrypto: text encodings of binary data.
#include <string>
#include <boost/system/error_code.hpp>
#include "tarn/platform_api.h"

namespace tarn {
namespace crypto {

// Base64 (RFC 4648 alphabet, "=" padding). With `lineBreaks` true a line feed is inserted after
// every 76 output characters (MIME style); with false the text is one line.
// A null `bytes` with a non-zero `count` sets `error` to invalid_argument and returns "".
TARN_PLATFORM_API std::string base64Encode(const unsigned char* bytes, unsigned int count, bool lineBreaks,
                                           boost::system::error_code& error);

// Two hexadecimal digits per byte, upper case when `upperCase` is true, lower case otherwise.
// A null `bytes` with a non-zero `count` sets `error` to invalid_argument and returns "".
TARN_PLATFORM_API std::string hexEncode(const unsigned char* bytes, unsigned int count, bool upperCase,
                                        boost::system::error_code& error);

} // namespace crypto
} // namespace tarn
