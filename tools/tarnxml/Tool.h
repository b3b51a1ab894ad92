#pragma once
// Shared pieces of the tarnxml command-line tool: the streams a command works on, exit codes,
// input reading, libxml2 error capture and document loading.
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace tool {

// Exit codes of every subcommand.
enum ExitCode : int {
    kExitOk = 0,
    kExitNotFound = 1,  // nothing selected, not well-formed, invalid UTF-8 given to encode
    kExitUsage = 2,     // usage or I/O errors
};

// The streams one run of the tool uses. `in` is standard input for the file name "-";
// `stdinIsFd0` says that it really is the process's standard input, which is then read with
// read(2) in large blocks instead of through the stream.
struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool stdinIsFd0;
};

// An error that ends the command with a message on standard error and the given exit code.
class ToolError : public std::runtime_error {
public:
    ToolError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
    int code() const { return code_; }

private:
    int code_;
};

// The whole content of a file, or of standard input for "-", read once. Throws ToolError
// (kExitUsage) for a file that does not exist, cannot be read or is a directory.
std::string readInput(const std::string& path, Streams& io);

// Writes `content` to a temporary file beside `path` and renames it over `path`, keeping the
// original's permission bits and, where the caller may, its owner and group. A symbolic link is
// followed: the file it leads to is replaced and the link stays. On any failure the temporary
// file is removed, the original is left as it was and ToolError (kExitUsage) is thrown.
void replaceFile(const std::string& path, const std::string& content);

// One libxml2 error as the tool reports it.
struct ParseError {
    bool set = false;
    int line = 0;
    int column = 0;
    std::string message;
};

// While alive, records the first libxml2 error raised on this thread (and keeps libxml2 quiet).
// The last error libxml2 keeps (xmlGetLastError) is reset on construction, so lastError()
// reports only what happened since.
class ErrorCapture {
public:
    ErrorCapture();
    ~ErrorCapture();
    ErrorCapture(const ErrorCapture&) = delete;
    ErrorCapture& operator=(const ErrorCapture&) = delete;

    // The first error recorded since construction, or failing that libxml2's last error.
    ParseError first() const;
    // libxml2's last error since construction, if any, and its libxml2 domain (0 when none).
    ParseError last() const;
    int lastDomain() const;
    // Called by the handler for each error.
    void record(int line, int column, const char* message);

private:
    ParseError first_;
};

// Silences libxml2's default error printing for the process; the tool reports errors itself.
void quietLibxml2();

// A parsed document with its root element.
struct Loaded {
    tarn::XmlDocumentPtr document;
    tarn::XmlNodePtr root;
    bool repaired = false;   // invalid UTF-8 or control characters were repaired on the way in
    bool recovered = false;  // parsed in recover mode and libxml2 reported errors
    ParseError problem;      // the first error reported in recover mode
    std::string encoding;    // the encoding the file was written in, when not UTF-8 ("" for UTF-8)
};

// Parses `text` through XmlDocument::Load. On failure prints "NAME:LINE:COLUMN: message" to
// io.err and returns false.
bool loadDocument(const std::string& name, const std::string& text, bool recover, Streams& io, Loaded& out);
// Reads `path` (or standard input for "-") and loads it strictly; the text is released before
// returning, so only the tree stays in memory.
bool loadFile(const std::string& path, Streams& io, Loaded& out);

// An XML 1.0 name with at most one colon, neither first nor last (a QName as namespaces
// require): what the tool accepts for element and attribute names it is given.
bool isQualifiedName(const std::string& name);
// The prefix of a qualified name ("" without one).
std::string prefixOf(const std::string& name);

// Escapes a text so that it fits on one line: \n, \r, \t, \\ and \" as such, other control
// bytes as \xHH; everything else (UTF-8 included) unchanged.
void appendEscaped(std::string& line, const std::string& text);

// Each selected element collected as a handle of its own (the iterator reuses one item).
std::vector<tarn::XmlNodePtr> collectElements(tarn::XPathNodeIterator* iterator);

// The default bound on XPath work (--max-steps): far beyond what a linear query on a 1 GB
// document needs, reached within seconds by a runaway one.
constexpr unsigned long kDefaultMaxSteps = 1000000000UL;

// Subcommands. Each returns the exit code; ToolError may leave them.
struct CheckOptions { std::vector<std::string> files; bool recover = false; };
int runCheck(const CheckOptions& options, Streams& io);

struct SelectOptions {
    std::vector<std::string> files;
    std::string xpath;
    bool text = false;
    bool value = false;
    bool count = false;
    std::string attribute;
    std::vector<std::string> namespaces;   // -N PREFIX=URI
    unsigned long maxSteps = kDefaultMaxSteps;
};
int runSelect(const SelectOptions& options, Streams& io);

// One action of `edit`, in command-line order. kSelect sets the selection later actions apply to.
struct EditAction {
    enum Kind { kSelect, kSetText, kSetAttr, kDelAttr, kDelete, kAppend, kRename, kInsertBefore, kInsertAfter } kind;
    std::string argument;
};
constexpr int kEditActionKinds = 9;
struct EditOptions {
    std::string file = "-";
    std::vector<EditAction> actions;
    bool inPlace = false;
    std::vector<std::string> namespaces;   // -N PREFIX=URI
    unsigned long maxSteps = kDefaultMaxSteps;
};
int runEdit(const EditOptions& options, Streams& io);

struct FormatOptions { std::string file = "-"; std::string indent = "  "; bool raw = false; };
int runFormat(const FormatOptions& options, Streams& io);

struct StreamOptions { std::string file = "-"; bool skipBlanks = false; };
int runStream(const StreamOptions& options, Streams& io);

int runEncode(const std::string& file, Streams& io);
int runDecode(const std::string& file, Streams& io);

struct WriteOptions { std::string file = "-"; bool indentSet = false; std::string indent; };
int runWrite(const WriteOptions& options, Streams& io);

int runDemo(const std::string& samplePath, Streams& io);

// Parses the command line (args[0] is the program name) and runs the subcommand.
int runTool(const std::vector<std::string>& args, Streams& io);

} // namespace tool
