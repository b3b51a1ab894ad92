#pragma once
// Shared pieces of the tarnxml command-line tool: the streams a command works on, exit codes,
// input reading and document loading.
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarnxml/XmlDiagnostics.h"
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

// Has `write` print the new content into a temporary file beside `path` and renames it over
// `path` (a `write` that returns false leaves `path` unchanged: exit 2), keeping the
// original's permission bits and, where the caller may, its owner and group. A symbolic link is
// followed: the file it leads to is replaced and the link stays. On any failure the temporary
// file is removed, the original is left as it was and ToolError (kExitUsage) is thrown.
void replaceFile(const std::string& path, const std::function<bool(std::ostream&)>& write);

// How a document is loaded. Every subcommand reads strictly (sanitize off: invalid UTF-8, control
// characters and NUL bytes are errors), within libxml2's limits unless `huge`.
struct Loading {
    bool recover = false;   // XML_PARSE_RECOVER
    bool sanitize = false;  // let XmlDocument::Load repair the text first (check --repair)
    bool huge = false;      // lift libxml2's depth and text-size limits
    bool readOnly = false;  // XmlLoadOptions::readOnly (libxml2's dictionary): the tool edits in
                            // place and never moves a node into another document
    bool noBlanks = false;  // drop ignorable blanks as xmllint --format reads (format)
};

// A parsed document with its root element.
struct Loaded {
    tarn::XmlDocumentPtr document;
    tarn::XmlNodePtr root;
    bool repaired = false;   // the text was repaired on the way in (sanitize)
    tarn::XmlDiagnostics diagnostics;   // what libxml2 reported (recover mode: the errors it mended)
    std::string encoding;    // the encoding the file was written in, when not UTF-8 ("" for UTF-8)
};

// Converts `text` to UTF-8 when it is in another encoding and parses it through
// XmlDocument::Load. On failure prints each error as "NAME:LINE:COLUMN: message" (or
// "NAME: byte OFFSET: message" for text that does not decode) to io.err and returns false.
bool loadDocument(const std::string& name, const std::string& text, const Loading& loading, Streams& io, Loaded& out);
// Reads `path` (or standard input for "-") and loads it; only the tree stays in memory (a
// regular file in UTF-8 is handed to the parser in blocks, never held whole).
bool loadFile(const std::string& path, const Loading& loading, Streams& io, Loaded& out);
// Prints the diagnostics of at least `level` to io.err, one per line.
void printDiagnostics(const tarn::XmlDiagnostics& diagnostics, Streams& io);

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
struct CheckOptions { std::vector<std::string> files; bool recover = false; bool repair = false; bool huge = false; };
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
    bool huge = false;
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
    bool huge = false;
};
int runEdit(const EditOptions& options, Streams& io);

struct FormatOptions { std::string file = "-"; std::string indent = "  "; bool raw = false; bool huge = false; };
int runFormat(const FormatOptions& options, Streams& io);

struct StreamOptions { std::string file = "-"; bool skipBlanks = false; bool huge = false; };
int runStream(const StreamOptions& options, Streams& io);

int runEncode(const std::string& file, Streams& io);
int runDecode(const std::string& file, Streams& io);

struct WriteOptions { std::string file = "-"; bool indentSet = false; std::string indent; };
int runWrite(const WriteOptions& options, Streams& io);

int runDemo(const std::string& samplePath, Streams& io);

// Parses the command line (args[0] is the program name) and runs the subcommand.
int runTool(const std::vector<std::string>& args, Streams& io);

} // namespace tool
