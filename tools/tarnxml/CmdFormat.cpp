// tarnxml format: re-print a document through the pugixml bridge.
#include <ostream>

#include <pugixml.hpp>

#include "Tool.h"
#include "tarnxml/XmlHelper.h"

namespace tool {

int runFormat(const FormatOptions& options, Streams& io) {
    Loaded loaded;
    if (!loadFile(options.file, io, loaded)) {
        return kExitNotFound;
    }
    pugi::xml_document converted;
    if (!XmlHelper::convert(loaded.root, converted)) {
        throw ToolError(kExitUsage, options.file + ": the document could not be handed to pugixml");
    }
    std::string printed = XmlHelper::outerXml(converted, !options.raw, options.indent.c_str());
    if (printed.empty() || printed.back() != '\n') {
        printed += '\n';
    }
    io.out << printed;
    return kExitOk;
}

} // namespace tool
