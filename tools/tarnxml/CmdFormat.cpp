// tarnxml format: print the whole document as xmllint prints it, indented (xmllint --format) or
// as it is (--raw), in the document's own encoding; the content never changes.
#include <ostream>

#include "Tool.h"

namespace tool {

int runFormat(const FormatOptions& options, Streams& io) {
    if (options.indent != "  ") {
        throw ToolError(kExitUsage, "--indent: format indents by two spaces, as xmllint --format does");
    }
    Loading loading;
    loading.huge = options.huge;
    loading.readOnly = true;
    Loaded loaded;
    if (!loadFile(options.file, loading, io, loaded)) {
        return kExitNotFound;
    }
    tarn::XmlSaveOptions save;
    save.format = !options.raw;
    save.encoding = loaded.encoding;
    const std::string printed = loaded.document->ToString(save);
    if (printed.empty()) {
        throw ToolError(kExitUsage, options.file + ": the document could not be printed");
    }
    io.out << printed;
    return kExitOk;
}

} // namespace tool
