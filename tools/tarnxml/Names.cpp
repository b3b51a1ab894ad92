// Name checks for the names the tool is given on the command line or in a write script.
#include <utf8.h>

#include "Tool.h"

namespace tool {

namespace {

bool nameStart(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

bool nameChar(char32_t c) {
    return nameStart(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// An XML name without colons (NCName).
bool isNCName(const std::string& name) {
    if (name.empty() || !utf8::is_valid(name.begin(), name.end())) {
        return false;
    }
    bool first = true;
    for (auto at = name.begin(); at != name.end();) {
        const char32_t c = utf8::next(at, name.end());
        if (!(first ? nameStart(c) : nameChar(c))) {
            return false;
        }
        first = false;
    }
    return true;
}

} // namespace

bool isQualifiedName(const std::string& name) {
    const std::string::size_type colon = name.find(':');
    if (colon == std::string::npos) {
        return isNCName(name);
    }
    return isNCName(name.substr(0, colon)) && isNCName(name.substr(colon + 1));
}

std::string prefixOf(const std::string& name) {
    const std::string::size_type colon = name.find(':');
    return colon == std::string::npos ? std::string() : name.substr(0, colon);
}

} // namespace tool
