// tarnxml select: print what an XPath expression selects.
#include <ostream>

#include "Select.h"

namespace tool {

int runSelect(const SelectOptions& options, Streams& io) {
    CompiledXPathPtr compiled = compileXPath(options.xpath);
    Loaded loaded;
    if (!loadFile(options.file, io, loaded)) {
        return kExitNotFound;
    }
    std::vector<tarn::XmlNodePtr> nodes = selectElements(loaded, options.xpath);
    if (nodes.empty()) {
        std::string value;
        int nonElements = 0;
        if (scalarValue(loaded, compiled.get(), value, nonElements)) {
            io.out << value << '\n';
            return kExitOk;
        }
        if (nonElements > 0) {
            io.err << "tarnxml select: '" << options.xpath << "' selects " << nonElements
                   << " node(s) but no element; only elements are printed (use --attr NAME or --text)\n";
        }
    }
    if (options.count) {
        io.out << nodes.size() << '\n';
        return nodes.empty() ? kExitNotFound : kExitOk;
    }
    std::size_t printed = 0;
    for (const tarn::XmlNodePtr& node : nodes) {
        if (options.text) {
            io.out << node->GetData() << '\n';
            ++printed;
        } else if (!options.attribute.empty()) {
            if (node->HasAttribute(options.attribute)) {
                io.out << node->GetAttribute(options.attribute) << '\n';
                ++printed;
            }
        } else {
            io.out << node->OuterXml() << '\n';
            ++printed;
        }
    }
    return printed == 0 ? kExitNotFound : kExitOk;
}

} // namespace tool
