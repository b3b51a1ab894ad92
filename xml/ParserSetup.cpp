// Explicit parser settings for the library's own parses, and diagnostics collection.
#include "ParserSetup.h"

#include <libxml/encoding.h>
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn {
namespace detail {

namespace {

// ---------------------------------------------------------------------------------------------
// Per-thread defaults. Each entry reads and writes one of libxml2's per-thread default values
// (the macros expand to the calling thread's copy) and names libxml2's documented value.

struct DefaultSlot {
    int& (*value)();
    int documented;
};

int& substituteEntities() { return xmlSubstituteEntitiesDefaultValue; }
int& loadExternalDtd() { return xmlLoadExtDtdDefaultValue; }
int& validate() { return xmlDoValidityCheckingDefaultValue; }
int& pedantic() { return xmlPedanticParserDefaultValue; }
int& keepBlanks() { return xmlKeepBlanksDefaultValue; }
int& warnings() { return xmlGetWarningsDefaultValue; }
int& lineNumbers() { return xmlLineNumbersDefaultValue; }
int& debugEntities() { return xmlParserDebugEntities; }

const DefaultSlot kDefaults[8] = {
    {substituteEntities, 0}, {loadExternalDtd, 0}, {validate, 0},    {pedantic, 0},
    {keepBlanks, 1},         {warnings, 1},        {lineNumbers, 0}, {debugEntities, 0},
};

// ---------------------------------------------------------------------------------------------
// External entities. libxml2 2.9 has one process-wide loader and no per-context one; the
// library installs a loader once that refuses every request made on a thread that is inside one
// of the library's parses and hands every other request to the loader installed before it, so
// the host's own parses behave as before. The parse options already keep libxml2 from asking
// for external entities and DTDs at all; this gate holds even if some path asked anyway. A host
// that installs a loader of its own after the library's first parse replaces the gate; the
// options still hold then.

// Initial-exec: read on every reader step, so it must cost a plain thread-pointer access rather
// than a call into the dynamic linker.
__attribute__((tls_model("initial-exec"))) thread_local int t_libraryParses = 0;
xmlExternalEntityLoader g_previousLoader = nullptr;
std::once_flag g_gateInstalled;

xmlParserInputPtr refusingLoader(const char* url, const char* id, xmlParserCtxtPtr context)
{
    if (t_libraryParses > 0)
        return nullptr;
    return g_previousLoader != nullptr ? g_previousLoader(url, id, context) : nullptr;
}

void installGate()
{
    g_previousLoader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(refusingLoader);
}

// SAX hooks of the library's document contexts: nothing is ever resolved or loaded.
xmlParserInputPtr resolveNothing(void*, const xmlChar*, const xmlChar*) { return nullptr; }
void loadNoExternalSubset(void*, const xmlChar*, const xmlChar*, const xmlChar*) {}

// libxml2 hands a parser context's structured handler the context's userData (the context
// itself unless someone changed it); the sink rides in _private.
void contextHandler(void* userData, xmlErrorPtr error)
{
    const xmlParserCtxtPtr context = static_cast<xmlParserCtxtPtr>(userData);
    if (context != nullptr && context->_private != nullptr)
        collectDiagnostic(*static_cast<DiagnosticSink*>(context->_private), error);
    forwardToHost(error);
}

} // namespace

ParserDefaults::ParserDefaults()
{
    installEntityGate();
    for (int i = 0; i < 8; ++i) {
        int& slot = kDefaults[i].value();
        saved_[i] = slot;
        slot = kDefaults[i].documented;
    }
}

ParserDefaults::~ParserDefaults()
{
    for (int i = 0; i < 8; ++i)
        kDefaults[i].value() = saved_[i];
}

void installEntityGate() { std::call_once(g_gateInstalled, installGate); }

LibraryParse::LibraryParse() { ++t_libraryParses; }

LibraryParse::~LibraryParse() { --t_libraryParses; }

void collectDiagnostic(DiagnosticSink& sink, const _xmlError* error)
{
    if (sink.list == nullptr || error == nullptr || error->level == XML_ERR_NONE)
        return;
    if (sink.list->size() >= kMaxDiagnostics)
        return;
    XmlDiagnostic entry;
    entry.level = static_cast<XmlDiagnostic::Level>(error->level);
    entry.line = error->line > 0 ? error->line : 0;
    entry.column = error->int2 > 0 ? error->int2 : 0;
    entry.code = error->code;
    if (error->message != nullptr) {
        entry.message = error->message;
        const std::string::size_type end = entry.message.find_last_not_of(" \t\r\n");
        entry.message.erase(end == std::string::npos ? 0 : end + 1);
    }
    if (sink.source != nullptr)
        entry.source = *sink.source;
    // libxml2 calls this from C: an allocation failure must not unwind through it.
    try {
        sink.list->push_back(std::move(entry));
    } catch (...) {
    }
}

void collectDiagnosticHandler(void* sink, _xmlError* error)
{
    DiagnosticSink* const target = static_cast<DiagnosticSink*>(sink);
    if (target != nullptr)
        collectDiagnostic(*target, error);
    if (!forwardToHost(error) && target != nullptr && target->printWithoutHost)
        printLikeLibxml2(error);
}

bool forwardToHost(_xmlError* error)
{
    // The calling thread's structured handler, as libxml2 would have called it for a parse
    // without a handler of its own; null unless the host set one on this thread.
    const xmlStructuredErrorFunc host = xmlStructuredError;
    if (host == nullptr || error == nullptr)
        return false;
    host(xmlStructuredErrorContext, error);
    return true;
}

void printLikeLibxml2(const _xmlError* error)
{
    if (error == nullptr || error->code == XML_ERR_OK || xmlGenericError == nullptr)
        return;
    const xmlGenericErrorFunc print = xmlGenericError;
    void* const data = xmlGenericErrorContext;
    // The input whose line is shown: an entity's input has no file name, so libxml2 shows the
    // one it was referenced from.
    const bool fromParser = error->domain == XML_FROM_PARSER || error->domain == XML_FROM_NAMESPACE ||
                            error->domain == XML_FROM_DTD || error->domain == XML_FROM_IO ||
                            error->domain == XML_FROM_VALID;
    xmlParserCtxtPtr context = fromParser ? static_cast<xmlParserCtxtPtr>(error->ctxt) : nullptr;
    xmlParserInputPtr input = nullptr;
    if (context != nullptr && context->input != nullptr) {
        input = context->input;
        if (input->filename == nullptr && context->inputNr > 1)
            input = context->inputTab[context->inputNr - 2];
    }
    if (error->file != nullptr)
        print(data, "%s:%d: ", error->file, error->line);
    else if (error->line != 0 && error->domain == XML_FROM_PARSER)
        print(data, "Entity: line %d: ", error->line);
    switch (error->domain) {
    case XML_FROM_PARSER: print(data, "parser "); break;
    case XML_FROM_NAMESPACE: print(data, "namespace "); break;
    case XML_FROM_DTD:
    case XML_FROM_VALID: print(data, "validity "); break;
    case XML_FROM_IO: print(data, "I/O "); break;
    case XML_FROM_MEMORY: print(data, "memory "); break;
    default: break;
    }
    print(data, error->level == XML_ERR_WARNING ? "warning : " : "error : ");
    const char* const message = error->message != nullptr ? error->message : "out of memory error";
    const std::size_t length = std::strlen(message);
    print(data, length > 0 && message[length - 1] == '\n' ? "%s" : "%s\n", message);
    if (input != nullptr)
        xmlParserPrintFileContext(input);
}

void configureDocumentContext(_xmlParserCtxt* context, DiagnosticSink* sink)
{
    // What xmlInitParserCtxt took from the defaults, cleared; xmlCtxtUseOptions then sets each
    // from the options the library passes (it only adds option bits, never clears them).
    context->options = 0;
    context->replaceEntities = 0;
    context->loadsubset = 0;
    context->validate = 0;
    context->pedantic = 0;
    context->keepBlanks = 1;
    context->linenumbers = 1;
    xmlSAXHandler* const sax = context->sax;
    sax->resolveEntity = resolveNothing;
    sax->externalSubset = loadNoExternalSubset;
    sax->ignorableWhitespace = sax->characters;
    // Errors and warnings go to this parse's sink only, never to a global handler.
    sax->error = nullptr;
    sax->warning = nullptr;
    sax->fatalError = nullptr;
    sax->serror = contextHandler;
    context->vctxt.error = nullptr;
    context->vctxt.warning = nullptr;
    context->userData = context;
    context->_private = sink;
}


void addFailure(XmlDiagnostics& list, const std::string& source, const std::string& message)
{
    XmlDiagnostic entry;
    entry.level = XmlDiagnostic::Fatal;
    entry.message = message;
    entry.source = source;
    list.push_back(std::move(entry));
}

int openForReading(const std::string& path, std::string& failure)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        failure = "cannot open " + path + ": " + std::strerror(errno);
        return -1;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
        ::close(fd);
        failure = "cannot read " + path + ": a directory";
        return -1;
    }
    return fd;
}

bool knownEncoding(const std::string& name)
{
    xmlCharEncodingHandler* const handler = xmlFindCharEncodingHandler(name.c_str());
    if (handler == nullptr)
        return false;
    xmlCharEncCloseFunc(handler);
    return true;
}

} // namespace detail

std::string FormatDiagnostic(const XmlDiagnostic& diagnostic)
{
    std::string text = diagnostic.source;
    if (!text.empty())
        text += ':';
    if (diagnostic.line > 0) {
        text += std::to_string(diagnostic.line);
        text += ':';
        if (diagnostic.column > 0) {
            text += std::to_string(diagnostic.column);
            text += ':';
        }
    }
    if (!text.empty())
        text += ' ';
    text += diagnostic.message;
    return text;
}

} // namespace tarn
