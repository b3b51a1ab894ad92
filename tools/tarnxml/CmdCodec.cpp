// tarnxml encode / decode: entity encoding of standard input (or a file) to standard output.
// Neither ever writes a NUL byte or invalid UTF-8: such input (or a reference that would decode
// to NUL) is refused with its byte offset.
#include <ostream>

#include <utf8.h>

#include "Tool.h"
#include "tarnxml/XmlHelper.h"

namespace tool {

namespace {

// The library's encoder and decoder stop at a NUL byte and would pass invalid UTF-8 on; both
// are refused up front. True when the text may go on.
bool checkInput(const std::string& command, const std::string& file, const std::string& text, Streams& io) {
    const std::string::size_type nul = text.find('\0');
    const auto bad = utf8::find_invalid(text.begin(), text.end());
    const std::size_t invalid = static_cast<std::size_t>(bad - text.begin());
    if (nul != std::string::npos && nul < invalid) {
        io.err << "tarnxml " << command << ": " << file << ": byte " << nul << ": input holds a NUL byte\n";
        return false;
    }
    if (bad != text.end()) {
        io.err << "tarnxml " << command << ": " << file << ": byte " << invalid
               << ": input is not valid UTF-8 (first invalid byte at offset " << invalid << ")\n";
        return false;
    }
    return true;
}

// The offset of the first character reference that decodes to NUL (&#0;, &#; or &#x; and the
// like), or npos.
std::string::size_type nulReference(const std::string& text) {
    for (std::string::size_type at = text.find("&#"); at != std::string::npos; at = text.find("&#", at + 2)) {
        const std::string::size_type end = text.find(';', at + 2);
        if (end == std::string::npos) {
            break;
        }
        const std::string decoded = XmlHelper::XmlDecode(text.substr(at, end + 1 - at));
        if (decoded.find('\0') != std::string::npos || (decoded.empty() && end > at)) {
            return at;
        }
    }
    return std::string::npos;
}

} // namespace

int runEncode(const std::string& file, Streams& io) {
    std::string text = readInput(file, io);
    if (!checkInput("encode", file, text, io)) {
        return kExitNotFound;
    }
    io.out << XmlHelper::XmlEncode(text);
    return kExitOk;
}

int runDecode(const std::string& file, Streams& io) {
    const std::string text = readInput(file, io);
    if (!checkInput("decode", file, text, io)) {
        return kExitNotFound;
    }
    std::string decoded = XmlHelper::XmlDecode(text);
    if (decoded.find('\0') != std::string::npos) {
        const std::string::size_type at = nulReference(text);
        io.err << "tarnxml decode: " << file << ": byte " << (at == std::string::npos ? 0 : at)
               << ": a character reference decodes to a NUL byte, which is not allowed in XML\n";
        return kExitNotFound;
    }
    io.out << decoded;
    return kExitOk;
}

} // namespace tool
