// tarnxml check: a well-formedness check of each file through XmlDocument::Load (strict, unless
// --repair asks what the library's repairing load would make of it), reporting the verdict.
#include <algorithm>
#include <ostream>

#include "Tool.h"
#include "tarnxml/XmlIterators.h"

namespace tool {

namespace {

long countElements(const tarn::XmlDocumentPtr& document) {
    long count = 0;
    tarn::XPathNodeIterator* iterator = document->GetIterator("//*");
    if (iterator != nullptr) {
        for (tarn::XmlNodePtr item = iterator->GetFirst(); item; item = iterator->GetNext()) {
            ++count;
        }
    }
    return count;
}

} // namespace

int runCheck(const CheckOptions& options, Streams& io) {
    int worst = kExitOk;
    for (const std::string& file : options.files) {
        Loaded loaded;
        Loading loading;
        loading.recover = options.recover;
        loading.sanitize = options.repair;
        loading.huge = options.huge;
        loading.readOnly = true;
        bool parsed = false;
        try {
            parsed = loadFile(file, loading, io, loaded);
        } catch (const ToolError& error) {
            io.err << "tarnxml check: " << error.what() << '\n';
            worst = std::max(worst, error.code());
            continue;
        }
        if (!parsed) {
            worst = std::max(worst, static_cast<int>(kExitNotFound));
            continue;
        }
        long count = countElements(loaded.document);
        io.out << file << ": ok, " << count << (count == 1 ? " element" : " elements");
        if (loaded.repaired) {
            io.out << ", invalid UTF-8 or control characters repaired";
        }
        const tarn::XmlDiagnostic* first = nullptr;
        for (const tarn::XmlDiagnostic& diagnostic : loaded.diagnostics) {
            if (first == nullptr && diagnostic.level != tarn::XmlDiagnostic::Warning) {
                first = &diagnostic;
            }
        }
        if (options.recover && first != nullptr) {
            io.out << ", recovered from errors (first at " << first->line << ':' << first->column << ": "
                   << first->message << ')';
        } else {
            // What libxml2 reports without failing the parse (namespace errors, warnings), as xmllint does.
            printDiagnostics(loaded.diagnostics, io);
        }
        io.out << '\n';
    }
    return worst;
}

} // namespace tool
