// tarnxml check: parse each file through XmlDocument::Load and report the verdict.
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
        std::string text;
        try {
            text = readInput(file, io);
        } catch (const ToolError& error) {
            io.err << "tarnxml check: " << error.what() << '\n';
            worst = std::max(worst, error.code());
            continue;
        }
        Loaded loaded;
        bool parsed = loadDocument(file, text, options.recover, io, loaded);
        std::string().swap(text);  // the tree holds everything from here on
        if (!parsed) {
            worst = std::max(worst, static_cast<int>(kExitNotFound));
            continue;
        }
        long count = countElements(loaded.document);
        io.out << file << ": ok, " << count << (count == 1 ? " element" : " elements");
        if (loaded.repaired) {
            io.out << ", invalid UTF-8 or control characters repaired";
        }
        if (loaded.recovered) {
            io.out << ", recovered from errors (first at " << loaded.problem.line << ':' << loaded.problem.column
                   << ": " << loaded.problem.message << ')';
        }
        io.out << '\n';
    }
    return worst;
}

} // namespace tool
