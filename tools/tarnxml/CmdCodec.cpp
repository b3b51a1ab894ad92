// tarnxml encode / decode: entity encoding of standard input (or a file) to standard output.
#include <ostream>

#include <utf8.h>

#include "Tool.h"
#include "tarnxml/XmlHelper.h"

namespace tool {

int runEncode(const std::string& file, Streams& io) {
    std::string text = readInput(file, io);
    std::string encoded;
    try {
        encoded = XmlHelper::XmlEncode(text);
    } catch (const utf8::exception&) {
        auto bad = utf8::find_invalid(text.begin(), text.end());
        io.err << "tarnxml encode: " << file << ": input is not valid UTF-8 (first invalid byte at offset "
               << (bad - text.begin()) << ")\n";
        return kExitNotFound;
    }
    io.out << encoded;
    return kExitOk;
}

int runDecode(const std::string& file, Streams& io) {
    io.out << XmlHelper::XmlDecode(readInput(file, io));
    return kExitOk;
}

} // namespace tool
