// Name checks for the names the tool is given on the command line or in a write script.
#include "Tool.h"
#include "tarnxml/XmlHelper.h"

namespace tool {

bool isQualifiedName(const std::string& name) {
    return XmlHelper::isValidUTF8(name) && XmlHelper::isQName(name);
}

std::string prefixOf(const std::string& name) {
    const std::string::size_type colon = name.find(':');
    return colon == std::string::npos ? std::string() : name.substr(0, colon);
}

} // namespace tool
