// tarnxml stream: walk a document with the library's streaming reader and print one line per
// node. The file is read incrementally (constant memory whatever its size); no tree is built.
#include <cerrno>
#include <cstring>
#include <memory>
#include <ostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tool.h"
#include "tarnxml/XmlReader.h"

namespace tool {

namespace {

const char* typeName(int type) {
    using T = tarn::XmlReaderNodeType;
    switch (type) {
    case T::None: return "none";
    case T::Element: return "element";
    case T::Attribute: return "attribute";
    case T::Text: return "text";
    case T::CData: return "cdata";
    case T::EntityReference: return "entity-ref";
    case T::Entity: return "entity";
    case T::ProcessingInstruction: return "pi";
    case T::Comment: return "comment";
    case T::Document: return "document";
    case T::DocumentType: return "doctype";
    case T::DocumentFragment: return "fragment";
    case T::Notation: return "notation";
    case T::Whitespace: return "whitespace";
    case T::SignificantWhitespace: return "significant-whitespace";
    case T::EndElement: return "end-element";
    case T::EndEntity: return "end-entity";
    case T::XmlDeclaration: return "xml-declaration";
    default: return "unknown";
    }
}

// XmlReader::state() after an error.
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

// An open descriptor for the file (standard input for "-"), checked to be no directory.
class Input {
public:
    explicit Input(const std::string& path) : fd_(STDIN_FILENO), owned_(path != "-") {
        if (owned_) {
            fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd_ < 0) {
                throw ToolError(kExitUsage, path + ": " + std::strerror(errno));
            }
        }
        struct stat info {};
        if (::fstat(fd_, &info) == 0 && S_ISDIR(info.st_mode)) {
            close();
            throw ToolError(kExitUsage, path + ": is a directory");
        }
    }
    ~Input() { close(); }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    int fd() const { return fd_; }

private:
    void close() {
        if (owned_ && fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    int fd_;
    bool owned_;
};

} // namespace

int runStream(const StreamOptions& options, Streams& io) {
    tarn::XmlReader reader;
    tarn::XmlReaderOptions readerOptions;
    readerOptions.huge = options.huge;
    readerOptions.sourceName = options.file;
    std::unique_ptr<Input> input;
    if (options.file == "-" && !io.stdinIsFd0) {
        // Standard input is a C++ stream here (the tool run inside another program): read it whole.
        std::string text = readInput(options.file, io);
        if (text.empty()) {
            io.err << options.file << ":1:1: Document is empty\n";
            return kExitNotFound;
        }
        reader.reset(text);
    } else {
        input = std::make_unique<Input>(options.file);
        if (!reader.openFd(input->fd(), readerOptions)) {
            throw ToolError(kExitUsage, options.file + ": cannot be read");
        }
    }
    std::string line;
    std::size_t nodes = 0;
    while (reader.read()) {
        ++nodes;
        int type = reader.nodeType();
        if (options.skipBlanks &&
            (type == tarn::XmlReaderNodeType::Whitespace || type == tarn::XmlReaderNodeType::SignificantWhitespace)) {
            continue;
        }
        int depth = reader.depth();
        appendNode(line, depth, typeName(type), reader.name(), reader.hasValue(), reader.value());
        if (type == tarn::XmlReaderNodeType::Element) {
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
    const tarn::XmlDiagnostics& diagnostics = reader.diagnostics();
    // Like xmllint, what libxml2 reports without stopping (namespace errors, warnings) is printed
    // and only an error that ends the reading fails.
    const bool failed = reader.state() == kReaderModeError || nodes == 0;
    io.out.flush();
    printDiagnostics(diagnostics, io);
    if (failed) {
        if (diagnostics.empty()) {
            io.err << options.file << (nodes == 0 ? ":1:1: Document is empty\n" : ": not well-formed\n");
        }
        return kExitNotFound;
    }
    return kExitOk;
}

} // namespace tool
