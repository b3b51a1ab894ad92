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
#include <set>
#include <sstream>

#include "Tool.h"
#include "tarnxml/XmlHelper.h"
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

// What the writer would print differently from what the script says, or not well-formed;
// "" when the text may go as it is.
std::string alteredText(const std::string& keyword, const std::string& text) {
    if (!text.empty() && !XmlHelper::isValidUTF8(text)) {
        return "invalid UTF-8 or a control character XML does not allow";
    }
    if (keyword == "cdata" && text.find("]]>") != std::string::npos) {
        return "a CDATA section cannot hold \"]]>\"";
    }
    if (keyword == "comment" && (text.find("--") != std::string::npos || (!text.empty() && text.back() == '-'))) {
        return "a comment cannot hold \"--\" or end with \"-\"";
    }
    if ((keyword == "cdata" || keyword == "comment") && text.find("&#") != std::string::npos) {
        // The printed document passes the writer's numeric-reference filter, which would rewrite it.
        return "\"&#\" in a " + keyword + " would not be printed as written";
    }
    return std::string();
}

// One element still open: the prefixes it declares, the prefixed names it uses (with their
// line) and the attribute names it has.
struct OpenElement {
    std::set<std::string> declared;
    std::vector<std::pair<std::string, int>> used;
    std::set<std::string> attributes;
    bool hasText = false;
};

} // namespace

int runWrite(const WriteOptions& options, Streams& io) {
    std::istringstream script(readInput(options.file, io));
    tarn::XmlWriter writer;
    if (options.indentSet) {
        writer.setFormatted(true);
        writer.setIndentString(options.indent);
    }
    std::vector<OpenElement> open;
    bool rootWritten = false;
    bool declared = false;
    bool anything = false;
    std::string line;
    int number = 0;
    auto fail = [&](const std::string& message, int at = 0) {
        io.err << "tarnxml write: " << options.file << ':' << (at != 0 ? at : number) << ": " << message << '\n';
        return kExitNotFound;
    };
    // A prefix must be declared (xmlns:p) on the element that uses it or an ancestor; checked
    // when the element closes, since its attributes follow its start.
    auto close = [&]() -> std::string {
        const OpenElement& closing = open.back();
        for (const auto& [prefix, at] : closing.used) {
            bool bound = prefix == "xml";
            for (const OpenElement& element : open) {
                bound = bound || element.declared.count(prefix) != 0;
            }
            if (!bound) {
                number = at;
                return "the prefix '" + prefix + "' is not declared (attr xmlns:" + prefix + " URI)";
            }
        }
        open.pop_back();
        return std::string();
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
            if (!isQualifiedName(name)) {
                return fail("'" + name + "' is not an XML name");
            }
            const std::string text = unescape(value);
            const std::string problem = alteredText(keyword, text);
            if (!problem.empty()) {
                return fail(problem);
            }
            if (keyword != "attr" && open.empty()) {
                if (rootWritten) {
                    return fail("a second root element ('" + name + "'); a document has exactly one");
                }
                rootWritten = true;
            }
            anything = true;
            const std::string prefix = prefixOf(name);
            if (keyword == "start") {
                if (!value.empty()) {
                    return fail("'start' takes only a name");
                }
                writer.startElement(name);
                open.emplace_back();
                if (!prefix.empty()) {
                    open.back().used.emplace_back(prefix, number);
                }
            } else if (keyword == "element") {
                if (!prefix.empty()) {
                    open.emplace_back();
                    open.back().used.emplace_back(prefix, number);
                    const std::string problem2 = close();
                    if (!problem2.empty()) {
                        return fail(problem2);
                    }
                }
                writer.writeElement(name, text);
            } else {
                if (open.empty()) {
                    return fail("'attr' outside an element");
                }
                OpenElement& element = open.back();
                if (!element.attributes.insert(name).second) {
                    return fail("a second attribute '" + name + "' on one element");
                }
                if (name == "xmlns" || prefix == "xmlns") {
                    if (prefix == "xmlns" && text.empty()) {
                        return fail("a prefix cannot be bound to an empty namespace name");
                    }
                    element.declared.insert(prefix == "xmlns" ? name.substr(6) : std::string());
                } else if (!prefix.empty()) {
                    element.used.emplace_back(prefix, number);
                }
                writer.writeAttribute(name, text);
            }
        } else if (keyword == "text" || keyword == "cdata" || keyword == "comment") {
            const std::string text = unescape(rest);
            const std::string problem = alteredText(keyword, text);
            if (!problem.empty()) {
                return fail(problem);
            }
            if (keyword == "comment") {
                writer.writeComment(text);
                continue;
            }
            if (open.empty()) {
                return fail("'" + keyword + "' outside an element");
            }
            // The writer sets an element's first text; a second text (or text after a CDATA
            // section) would replace it.
            if (keyword == "text" && open.back().hasText) {
                return fail("a second text in one element would replace the first; write it as one line "
                            "(\\n for line feeds)");
            }
            open.back().hasText = true;
            if (keyword == "text") {
                writer.writeText(text);
            } else {
                writer.writeCDATA(text);
            }
        } else if (keyword == "end") {
            if (open.empty()) {
                return fail("'end' without an open element");
            }
            const std::string problem = close();
            if (!problem.empty()) {
                return fail(problem);
            }
            writer.endElement();
        } else if (keyword == "declaration") {
            if (declared || anything) {
                return fail("the declaration must come first, and once");
            }
            declared = true;
            std::istringstream words(rest);
            std::string version, encoding, standalone, extra;
            words >> version >> encoding >> standalone >> extra;
            if (!extra.empty() || (!version.empty() && (version.size() < 3 || version.compare(0, 2, "1.") != 0 ||
                                                         version.find_first_not_of("0123456789", 2) != std::string::npos))) {
                return fail("'declaration' takes VERSION (1.x) [ENCODING [STANDALONE]]");
            }
            // The writer prints UTF-8; another declared encoding would mislabel the bytes.
            if (!encoding.empty() && encoding != "UTF-8" && encoding != "utf-8") {
                return fail("the tool writes UTF-8; encoding '" + encoding + "' would not match the bytes");
            }
            if (!standalone.empty() && standalone != "yes" && standalone != "no") {
                return fail("standalone is yes or no");
            }
            writer.startDocument(version.empty() ? nullptr : version.c_str(),
                                 encoding.empty() ? nullptr : encoding.c_str(),
                                 standalone.empty() ? nullptr : standalone.c_str());
        } else {
            return fail("unknown keyword '" + keyword +
                        "' (expected start, attr, text, element, cdata, comment, end or declaration)");
        }
    }
    while (!open.empty()) {
        const std::string problem = close();
        if (!problem.empty()) {
            return fail(problem);
        }
    }
    if (!rootWritten) {
        return fail("no element written; a document needs a root element", number == 0 ? 1 : number);
    }
    std::string printed = writer.str();
    if (!printed.empty() && printed.back() != '\n') {
        printed += '\n';
    }
    io.out << printed;
    return kExitOk;
}

} // namespace tool
