// tarnxml write: build a document with XmlWriter from a small line-oriented script.
//
// Each line is a keyword, a blank and its argument; blank lines and lines starting with "#" are
// skipped. In arguments, \n, \t and \\ stand for a line feed, a tab and a backslash.
//   declaration [VERSION [ENCODING [STANDALONE]]]   XML declaration ("1.0", "UTF-8" by default)
//   start NAME          open an element
//   attr NAME VALUE     attribute of the open element (VALUE is the rest of the line)
//   text T              text of the open element
//   element NAME VALUE  a leaf element with text
//   cdata T             CDATA section
//   comment T           comment
//   end                 close the open element
#include <istream>
#include <ostream>
#include <sstream>

#include "Tool.h"
#include "tarnxml/XmlWriter.h"

namespace tool {

namespace {

std::string unescape(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            char next = text[i + 1];
            if (next == 'n' || next == 't' || next == '\\') {
                result += next == 'n' ? '\n' : next == 't' ? '\t' : '\\';
                ++i;
                continue;
            }
        }
        result += text[i];
    }
    return result;
}

// Splits "WORD REST" at the first blank.
std::pair<std::string, std::string> firstWord(const std::string& text) {
    std::string::size_type blank = text.find(' ');
    if (blank == std::string::npos) {
        return {text, std::string()};
    }
    return {text.substr(0, blank), text.substr(blank + 1)};
}

} // namespace

int runWrite(const WriteOptions& options, Streams& io) {
    std::istringstream script(readInput(options.file, io));
    tarn::XmlWriter writer;
    if (options.indentSet) {
        writer.setFormatted(true);
        writer.setIndentString(options.indent);
    }
    int open = 0;
    bool rootWritten = false;
    std::string line;
    int number = 0;
    auto fail = [&](const std::string& message) {
        io.err << "tarnxml write: " << options.file << ':' << number << ": " << message << '\n';
        return kExitNotFound;
    };
    while (std::getline(script, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        auto [keyword, rest] = firstWord(line);
        if (keyword == "start" || keyword == "element" || keyword == "attr") {
            auto [name, value] = firstWord(rest);
            if (name.empty()) {
                return fail("'" + keyword + "' needs a name");
            }
            if (keyword != "attr" && open == 0) {
                if (rootWritten) {
                    return fail("a second root element ('" + name + "'); a document has exactly one");
                }
                rootWritten = true;
            }
            if (keyword == "start") {
                if (!value.empty()) {
                    return fail("'start' takes only a name");
                }
                writer.startElement(name);
                ++open;
            } else if (keyword == "element") {
                writer.writeElement(name, unescape(value));
            } else {
                if (open == 0) {
                    return fail("'attr' outside an element");
                }
                writer.writeAttribute(name, unescape(value));
            }
        } else if (keyword == "text") {
            if (open == 0) {
                return fail("'text' outside an element");
            }
            writer.writeText(unescape(rest));
        } else if (keyword == "cdata") {
            writer.writeCDATA(unescape(rest));
        } else if (keyword == "comment") {
            writer.writeComment(unescape(rest));
        } else if (keyword == "end") {
            if (open == 0) {
                return fail("'end' without an open element");
            }
            writer.endElement();
            --open;
        } else if (keyword == "declaration") {
            std::istringstream words(rest);
            std::string version, encoding, standalone;
            words >> version >> encoding >> standalone;
            writer.startDocument(version.empty() ? nullptr : version.c_str(),
                                 encoding.empty() ? nullptr : encoding.c_str(),
                                 standalone.empty() ? nullptr : standalone.c_str());
        } else {
            return fail("unknown keyword '" + keyword +
                        "' (expected start, attr, text, element, cdata, comment, end or declaration)");
        }
    }
    std::string printed = writer.str();
    if (!printed.empty() && printed.back() != '\n') {
        printed += '\n';
    }
    io.out << printed;
    return kExitOk;
}

} // namespace tool
