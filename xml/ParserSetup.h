#pragma once
// How the library's own parses are set up, whatever the host process has done to libxml2's
// global defaults: the per-thread parser defaults held at libxml2's documented values while a
// parser context is made, an external entity gate, and the structured error handler that
// collects diagnostics per parse; and what loads and readers check of the input they are given.
#include "tarnxml/XmlDiagnostics.h"

#include <string>

struct _xmlParserCtxt;
struct _xmlError;

namespace tarn {
namespace detail {

// While alive, this thread's libxml2 parser defaults (xmlSubstituteEntitiesDefault,
// xmlLoadExtDtdDefaultValue, xmlDoValidityCheckingDefaultValue, xmlPedanticParserDefault,
// xmlKeepBlanksDefault, xmlGetWarningsDefaultValue, xmlLineNumbersDefault,
// xmlParserDebugEntities) hold libxml2's documented values; the host's values come back on
// destruction. libxml2 keeps these per thread, so other threads are not affected. Also installs
// the external entity gate (installEntityGate) before the first parse.
class ParserDefaults {
public:
    ParserDefaults();
    ~ParserDefaults();
    ParserDefaults(const ParserDefaults&) = delete;
    ParserDefaults& operator=(const ParserDefaults&) = delete;

private:
    int saved_[8];
};

// Installs the library's external entity loader (once per process; see ParserSetup.cpp). Every
// parse and every reader open calls it before it starts.
void installEntityGate();

// While alive, this thread is inside one of the library's own parses: the library's external
// entity loader refuses every request (no file, no socket) instead of passing it on to the loader
// that was installed before it.
class LibraryParse {
public:
    LibraryParse();
    ~LibraryParse();
    LibraryParse(const LibraryParse&) = delete;
    LibraryParse& operator=(const LibraryParse&) = delete;
};

// Where one parse's diagnostics go.
struct DiagnosticSink {
    XmlDiagnostics* list = nullptr;
    const std::string* source = nullptr;
    // The reader over text in memory reports its errors as a reader without a handler of its own
    // would: to the host's structured handler when there is one, otherwise printed through
    // libxml2's generic error function (standard error by default). The other parses only
    // forward to the host's handler.
    bool printWithoutHost = false;
};

// Appends `error` to `sink` (dropped past kMaxDiagnostics, and when its level is "none").
void collectDiagnostic(DiagnosticSink& sink, const _xmlError* error);

// A structured error handler (xmlStructuredErrorFunc) whose user data is a DiagnosticSink. Like
// the document contexts' handler, it collects and then forwards the error to forwardToHost.
void collectDiagnosticHandler(void* sink, _xmlError* error);

// Hands `error` on to the structured handler the host set on the calling thread
// (xmlSetStructuredErrorFunc), if any, as libxml2 did before the library had handlers of its
// own: callers that captured the library's errors that way keep seeing them. libxml2 keeps that
// handler per thread, so a thread never sees another thread's errors; nothing is printed when
// the host set none. Returns whether there was such a handler.
bool forwardToHost(_xmlError* error);

// Prints `error` through the calling thread's generic error function in the layout of libxml2's
// own default report ("FILE:LINE: parser error : message", then the line of input with a caret).
void printLikeLibxml2(const _xmlError* error);

// Puts every setting of a document parse on `context` explicitly: no option bit inherited from
// the defaults, no external subset or entity resolved through the SAX handler, and the errors
// routed to `sink` (the context's _private) through a structured handler of its own. The
// options themselves are applied by the read call (xmlCtxtReadMemory).
void configureDocumentContext(_xmlParserCtxt* context, DiagnosticSink* sink);

// Appends a failure of the library's own (an input that cannot be opened or read) to `list`.
void addFailure(XmlDiagnostics& list, const std::string& source, const std::string& message);

// Opens `path` for reading: its descriptor, or -1 with `failure` saying why ("cannot open PATH:
// <reason>", "cannot read PATH: a directory").
int openForReading(const std::string& path, std::string& failure);

// Whether libxml2 has a converter for the encoding `name`, asked so that libxml2 prints nothing.
bool knownEncoding(const std::string& name);

} // namespace detail
} // namespace tarn
