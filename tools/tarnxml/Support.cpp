// Input, atomic output and document loading for the tarnxml tool.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <istream>
#include <memory>
#include <ostream>
#include <streambuf>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tool.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"

namespace tool {

namespace {

std::string systemMessage(const std::string& name, int error) {
    return name + ": " + std::strerror(error);
}

// Reads everything from `fd` into `text`. A regular file is read into a buffer of its size
// (growing if the file grows meanwhile); pipes and terminals in blocks.
void readDescriptor(int fd, const std::string& name, std::string& text) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        throw ToolError(kExitUsage, systemMessage(name, errno));
    }
    if (S_ISDIR(info.st_mode)) {
        throw ToolError(kExitUsage, name + ": is a directory");
    }
    std::size_t used = 0;
    std::size_t block = 1 << 20;
    if (S_ISREG(info.st_mode) && info.st_size > 0) {
        text.resize(static_cast<std::size_t>(info.st_size));
    }
    for (;;) {
        if (used == text.size()) {
            // Full (a regular file is read into a buffer of its size): look for more in a small
            // buffer first, so that reaching the end never reallocates the whole text.
            char probe[4096];
            ssize_t got = ::read(fd, probe, sizeof probe);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                int error = errno;
                text.clear();
                throw ToolError(kExitUsage, systemMessage(name, error));
            }
            if (got == 0) {
                break;
            }
            text.resize(used + static_cast<std::size_t>(got) + block);
            std::memcpy(&text[used], probe, static_cast<std::size_t>(got));
            used += static_cast<std::size_t>(got);
            continue;
        }
        ssize_t got = ::read(fd, &text[used], text.size() - used);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            int error = errno;
            text.clear();
            throw ToolError(kExitUsage, systemMessage(name, error));
        }
        if (got == 0) {
            break;
        }
        used += static_cast<std::size_t>(got);
    }
    text.resize(used);
}

// A file opened for reading, closed when the object goes; ToolError (kExitUsage) when it cannot be opened.
struct OpenFile {
    explicit OpenFile(const std::string& path) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (fd < 0) {
            throw ToolError(kExitUsage, systemMessage(path, errno));
        }
    }
    ~OpenFile() { ::close(fd); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    const int fd;
};

// An output stream's buffer writing to a descriptor in large blocks; `error` keeps the errno of
// the first write that failed (the rest is then dropped).
class DescriptorBuffer : public std::streambuf {
public:
    explicit DescriptorBuffer(int fd) : fd_(fd), block_(1 << 16) { setp(block_.data(), block_.data() + block_.size()); }
    int error = 0;

protected:
    int overflow(int c) override {
        if (!drain()) {
            return traits_type::eof();
        }
        if (c != traits_type::eof()) {
            *pptr() = static_cast<char>(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    int sync() override { return drain() ? 0 : -1; }

private:
    bool drain() {
        const char* at = pbase();
        while (error == 0 && at < pptr()) {
            const ssize_t put = ::write(fd_, at, static_cast<std::size_t>(pptr() - at));
            if (put < 0 && errno != EINTR) {
                error = errno;
            } else if (put > 0) {
                at += put;
            }
        }
        setp(block_.data(), block_.data() + block_.size());
        return error == 0;
    }
    int fd_;
    std::vector<char> block_;
};

} // namespace

std::string readInput(const std::string& path, Streams& io) {
    std::string text;
    if (path == "-") {
        if (io.stdinIsFd0) {
            readDescriptor(STDIN_FILENO, "-", text);
        } else {
            text.assign(std::istreambuf_iterator<char>(io.in), std::istreambuf_iterator<char>());
        }
        return text;
    }
    const OpenFile file(path);
    readDescriptor(file.fd, path, text);
    return text;
}

void replaceFile(const std::string& given, const std::function<bool(std::ostream&)>& write) {
    // A symbolic link stays a link: the file it leads to is the one replaced.
    std::unique_ptr<char, void (*)(void*)> resolved(::realpath(given.c_str(), nullptr), std::free);
    if (!resolved) {
        throw ToolError(kExitUsage, systemMessage(given, errno));
    }
    const std::string path = resolved.get();
    struct stat original {};
    if (::stat(path.c_str(), &original) != 0) {
        throw ToolError(kExitUsage, systemMessage(path, errno));
    }
    std::string::size_type slash = path.rfind('/');
    std::string directory = slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temporary = (slash == std::string::npos ? std::string() : directory) + "." + base + ".tarnxml-XXXXXX";
    int fd = ::mkstemp(&temporary[0]);
    if (fd < 0) {
        throw ToolError(kExitUsage, "cannot write a temporary file beside " + path + ": " + std::strerror(errno) +
                                        " (file left unchanged)");
    }
    auto fail = [&](const std::string& what, int error) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw ToolError(kExitUsage, what + ": " + std::strerror(error) + " (" + path + " left unchanged)");
    };
    // The owner and group go first (changing them may clear set-id bits), then the mode. An owner
    // the caller may not give away is kept as the caller's; that is no reason to fail.
    if (::fchown(fd, original.st_uid, original.st_gid) != 0 && ::fchown(fd, static_cast<uid_t>(-1), original.st_gid) != 0 &&
        errno != EPERM) {
        fail("cannot set the owner of " + temporary, errno);
    }
    if (::fchmod(fd, original.st_mode & 07777) != 0) {
        fail("cannot set the permissions of " + temporary, errno);
    }
    DescriptorBuffer buffer(fd);
    std::ostream stream(&buffer);
    bool printed = false;
    try {
        printed = write(stream);
        stream.flush();
    } catch (...) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
    if (buffer.error != 0) {
        fail("cannot write " + temporary, buffer.error);
    }
    if (!printed) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw ToolError(kExitUsage, given + ": the document could not be printed (file left unchanged)");
    }
    if (::fsync(fd) != 0) {
        fail("cannot write " + temporary, errno);
    }
    if (::close(fd) != 0) {
        int error = errno;
        ::unlink(temporary.c_str());
        throw ToolError(kExitUsage, "cannot write " + temporary + ": " + std::strerror(error) + " (" + path +
                                        " left unchanged)");
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        int error = errno;
        ::unlink(temporary.c_str());
        throw ToolError(kExitUsage, "cannot replace " + path + ": " + std::strerror(error) + " (file left unchanged)");
    }
}

void printDiagnostics(const tarn::XmlDiagnostics& diagnostics, Streams& io) {
    for (const tarn::XmlDiagnostic& diagnostic : diagnostics) {
        // One line each: libxml2 puts the offending bytes of an encoding error on a line of its own.
        std::string line = tarn::FormatDiagnostic(diagnostic);
        for (char& c : line) {
            if (c == '\n' || c == '\r') {
                c = ' ';
            }
        }
        io.err << line << '\n';
    }
}

namespace {

// The encoding name the document itself gives in its declaration (spelled as it is there), read
// from its first bytes with zero bytes left out so that UTF-16 reads like ASCII; "" without one.
std::string declaredEncoding(const std::string& original) {
    std::string head;
    for (std::size_t i = 0; i < original.size() && head.size() < 256; ++i) {
        if (original[i] != '\0') {
            head += original[i];
        }
    }
    const std::string::size_type start = head.find("<?xml");
    const std::string::size_type end = head.find("?>");
    if (start == std::string::npos || end == std::string::npos || end < start) {
        return std::string();
    }
    const std::string declaration = head.substr(start, end - start);
    std::string::size_type at = declaration.find("encoding");
    if (at == std::string::npos) {
        return std::string();
    }
    at = declaration.find_first_of("\"'", at);
    if (at == std::string::npos) {
        return std::string();
    }
    const std::string::size_type close = declaration.find(declaration[at], at + 1);
    return close == std::string::npos ? std::string() : declaration.substr(at + 1, close - at - 1);
}

} // namespace

namespace {

// libxml2's limit on one text node without XML_PARSE_HUGE.
constexpr std::size_t kMaxTextNode = 10000000;

// libxml2 applies its text-node limit while it gathers text in pieces (the streaming reader,
// text broken by references) but not to text it reads in one piece from memory; such a piece is
// a run of bytes without '<' and '&' (comments, CDATA sections and attribute values that long
// are refused by libxml2 itself). The input is scanned for one, so the limit is the same for
// every subcommand: the length of the longest such run when over the limit, else 0.
std::size_t overlongText(const std::string& text) {
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        const char* next = static_cast<const char*>(std::memchr(at, '<', static_cast<std::size_t>(end - at)));
        if (next == nullptr) {
            next = end;
        }
        if (static_cast<std::size_t>(next - at) > kMaxTextNode) {
            // Rare: split the run at references.
            for (const char* piece = at; piece < next;) {
                const char* amp = static_cast<const char*>(std::memchr(piece, '&', static_cast<std::size_t>(next - piece)));
                const char* stop = amp != nullptr ? amp : next;
                if (static_cast<std::size_t>(stop - piece) > kMaxTextNode) {
                    return static_cast<std::size_t>(stop - piece);
                }
                piece = stop + 1;
            }
        }
        at = next + 1;
    }
    return 0;
}

} // namespace

namespace {

// UTF-8 without a byte order mark and without a declaration naming another encoding, judged from
// the first bytes of the input: the common case, which needs no conversion (and no copy).
bool plainUtf8(const std::string& head, const std::string& declared) {
    const std::string lowered = ToLower(declared);
    return !head.empty() && static_cast<unsigned char>(head[0]) < 0x80 && head[0] != '\0' &&
           (head.size() < 2 || head[1] != '\0') && (declared.empty() || lowered == "utf-8" || lowered == "utf8");
}

tarn::XmlLoadOptions loadOptions(const std::string& name, const Loading& loading) {
    tarn::XmlLoadOptions options;
    options.recover = loading.recover;
    options.sanitize = loading.sanitize;
    options.huge = loading.huge;
    options.readOnly = loading.readOnly;
    options.noBlanks = loading.noBlanks;
    options.sourceName = name;
    return options;
}

// After XmlDocument::Load or LoadFd gave `result`: the diagnostics, the root, or the failure printed.
bool finishLoad(const std::string& name, int result, Streams& io, Loaded& out) {
    out.diagnostics = out.document->GetDiagnostics();
    out.repaired = out.document->WasRepaired();
    if (result != 0) {
        if (out.diagnostics.empty()) {
            io.err << name << ": not well-formed\n";
        }
        for (const tarn::XmlDiagnostic& diagnostic : out.diagnostics) {
            if (diagnostic.message.find("huge text node") != std::string::npos) {
                // libxml2 words its text-node limit as a failed allocation.
                io.err << name << ": a text node is longer than libxml2's limit of " << kMaxTextNode
                       << " bytes (--huge lifts it)\n";
                out.document.reset();
                return false;
            }
        }
        printDiagnostics(out.diagnostics, io);
        out.document.reset();
        return false;
    }
    out.root = out.document->GetRoot();
    if (!out.root) {
        io.err << name << ": no root element\n";
        out.document.reset();
        return false;
    }
    return true;
}

} // namespace

bool loadDocument(const std::string& name, const std::string& original, const Loading& loading, Streams& io,
                  Loaded& out) {
    out = Loaded();
    if (original.empty()) {
        io.err << name << ":1:1: Document is empty\n";
        return false;
    }
    // Text in another encoding is converted first (the library reads UTF-8); the document is
    // written back in the encoding it came in, under the name its declaration gives.
    const std::string declared = declaredEncoding(original);
    std::string converted;
    XmlHelper::EncodingResult found;
    if (plainUtf8(original, declared)) {
        found.ok = true;
        found.encoding = "UTF-8";
    } else {
        found = XmlHelper::toUTF8(original, converted);
    }
    if (!found.ok) {
        io.err << name << ": byte " << found.errorOffset << ": " << found.error << '\n';
        return false;
    }
    const bool utf8 = found.encoding == "UTF-8" && !found.bom;
    if (found.encoding != "UTF-8") {
        out.encoding = !declared.empty() ? declared : found.bom && found.encoding.compare(0, 6, "UTF-16") == 0 ? "UTF-16" : found.encoding;
    }
    const std::string& text = utf8 ? original : converted;
    if (!loading.huge && text.size() > kMaxTextNode) {
        if (overlongText(text) != 0) {
            io.err << name << ": a text node is longer than libxml2's limit of " << kMaxTextNode
                   << " bytes (--huge lifts it)\n";
            return false;
        }
    }
    out.document = tarn::CreateXmlDocument();
    return finishLoad(name, out.document->Load(text, loadOptions(name, loading)), io, out);
}

bool loadFile(const std::string& path, const Loading& loading, Streams& io, Loaded& out) {
    if (path != "-") {
        // A regular file in plain UTF-8 goes to the parser in blocks, so that only the tree is
        // held; anything else is read whole and converted first.
        const OpenFile file(path);
        struct stat info {};
        char head[256];
        ssize_t got = -1;
        if (::fstat(file.fd, &info) == 0 && S_ISREG(info.st_mode) && !loading.sanitize) {
            got = ::pread(file.fd, head, sizeof head, 0);
        }
        if (got > 0) {
            const std::string start(head, static_cast<std::size_t>(got));
            if (plainUtf8(start, declaredEncoding(start))) {
                out = Loaded();
                out.document = tarn::CreateXmlDocument();
                return finishLoad(path, out.document->LoadFd(file.fd, loadOptions(path, loading)), io, out);
            }
        }
        std::string text;
        readDescriptor(file.fd, path, text);
        return loadDocument(path, text, loading, io, out);
    }
    std::string text = readInput(path, io);
    return loadDocument(path, text, loading, io, out);
}

void appendEscaped(std::string& line, const std::string& text) {
    static const char hex[] = "0123456789abcdef";
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '\n': line += "\\n"; break;
        case '\r': line += "\\r"; break;
        case '\t': line += "\\t"; break;
        case '\\': line += "\\\\"; break;
        case '"': line += "\\\""; break;
        default:
            if (byte < 0x20 || byte == 0x7f) {
                line += "\\x";
                line += hex[byte >> 4];
                line += hex[byte & 0xf];
            } else {
                line += c;
            }
        }
    }
}

std::vector<tarn::XmlNodePtr> collectElements(tarn::XPathNodeIterator* iterator) {
    std::vector<tarn::XmlNodePtr> nodes;
    if (iterator == nullptr) {
        return nodes;
    }
    for (tarn::XmlNodePtr item = iterator->GetFirst(); item; item = iterator->GetNext()) {
        tarn::XmlNodePtr handle = tarn::CreateXmlNode();
        handle->Initialize(item->getlibXML2Node());
        nodes.push_back(handle);
    }
    return nodes;
}

} // namespace tool
