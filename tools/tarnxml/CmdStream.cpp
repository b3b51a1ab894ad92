// tarnxml stream: walk a document with XmlReader and print one line per node.
#include <ostream>

#include "Tool.h"
#include "tarnxml/XmlReader.h"

namespace tool {

namespace {

// libxml2's xmlReaderTypes, by number.
const char* typeName(int type) {
    static const char* const names[] = {
        "none",          "element",          "attribute", "text",     "cdata",
        "entity-ref",    "entity",           "pi",        "comment",  "document",
        "doctype",       "fragment",         "notation",  "whitespace", "significant-whitespace",
        "end-element",   "end-entity",       "xml-declaration",
    };
    return type >= 0 && type <= 17 ? names[type] : "unknown";
}

constexpr int kWhitespace = 13;
constexpr int kSignificantWhitespace = 14;
constexpr int kElement = 1;
constexpr int kReaderModeError = 2;

void appendNode(std::string& line, int depth, const char* type, const std::string& name, bool withValue,
                const std::string& value) {
    line += std::to_string(depth);
    line += ' ';
    line += type;
    line += ' ';
    line += name;
    if (withValue) {
        line += " \"";
        appendEscaped(line, value);
        line += '"';
    }
    line += '\n';
}

} // namespace

int runStream(const StreamOptions& options, Streams& io) {
    tarn::XmlReader reader;
    {
        // The file is read once; the reader keeps its own copy, so ours goes at once.
        std::string text = readInput(options.file, io);
        if (text.empty()) {
            io.err << options.file << ":1:1: Document is empty\n";
            return kExitNotFound;
        }
        reader.reset(text);
    }
    ErrorCapture capture;
    std::string line;
    while (reader.read()) {
        int type = reader.nodeType();
        if (options.skipBlanks && (type == kWhitespace || type == kSignificantWhitespace)) {
            continue;
        }
        int depth = reader.depth();
        appendNode(line, depth, typeName(type), reader.name(), reader.hasValue(), reader.value());
        if (type == kElement) {
            if (reader.isEmpty()) {
                line.insert(line.size() - 1, " empty");
            }
            if (reader.hasAttributes()) {
                for (bool more = reader.firstAttribute(); more; more = reader.nextAttribute()) {
                    appendNode(line, reader.depth(), "attribute", reader.name(), true, reader.value());
                }
                reader.moveToElement();
            }
        }
        if (line.size() > (1 << 16)) {
            io.out << line;
            line.clear();
        }
    }
    io.out << line;
    if (reader.state() == kReaderModeError) {
        ParseError error = capture.first();
        io.out.flush();
        if (error.set) {
            io.err << options.file << ':' << error.line << ':' << error.column << ": " << error.message << '\n';
        } else {
            io.err << options.file << ": not well-formed\n";
        }
        return kExitNotFound;
    }
    return kExitOk;
}

} // namespace tool
