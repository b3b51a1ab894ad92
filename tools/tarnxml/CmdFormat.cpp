// tarnxml format: print the whole document as xmllint prints it, indented (xmllint --format) or
// as it is (--raw), in the document's own encoding; the content never changes.
#include <ostream>

#include "Tool.h"

namespace tool {

int runFormat(const FormatOptions& options, Streams& io) {
    if (options.indent.size() > 60 || options.indent.find_first_not_of(" \t") != std::string::npos) {
        throw ToolError(kExitUsage, "--indent: spaces and tabs only, at most 60");
    }
    Loading loading;
    loading.huge = options.huge;
    loading.readOnly = true;
    loading.noBlanks = !options.raw;  // xmllint --format's own parse, so the tree prints indented directly
    Loaded loaded;
    if (!loadFile(options.file, loading, io, loaded)) {
        return kExitNotFound;
    }
    tarn::XmlSaveOptions save;
    save.format = !options.raw;
    save.encoding = loaded.encoding;
    save.indent = options.indent;
    if (!loaded.document->SaveTo(io.out, save)) {
        throw ToolError(kExitUsage, options.file + ": the document could not be printed");
    }
    return kExitOk;
}

} // namespace tool
