// XmlDocument: parsing text into an owned libxml2 tree, the shared root handle, the factories.
#include "tarnxml/XmlDocument.h"

#include "ParserSetup.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"

#include "ParserContext.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include <unistd.h>

namespace tarn {

namespace {

// No error printing, no network, names and texts allocated per node (no dictionary), so that
// nodes can be moved into other trees or freed on their own. Entities are not substituted and
// no DTD is loaded: a document cannot make the parser read files or expand entity chains.
constexpr int kParseOptions = XML_PARSE_NOERROR | XML_PARSE_NONET | XML_PARSE_NODICT;

// The base URL of every loaded document.
constexpr const char* kDocumentUrl = "dummy.xml";

// Parses through a new context of the library's own: `read` calls one of libxml2's
// xmlCtxtRead* functions with the context and the parse options. Diagnostics go to `list`.
template <class Read>
xmlDoc* parse(const XmlLoadOptions& options, XmlDiagnostics& list, Read read)
{
    int parseOptions = options.recover ? (kParseOptions | XML_PARSE_RECOVER) : kParseOptions;
    if (options.huge)
        parseOptions |= XML_PARSE_HUGE;
    if (options.readOnly)
        parseOptions &= ~XML_PARSE_NODICT;
    if (options.noBlanks)
        parseOptions |= XML_PARSE_NOBLANKS;
    // The host's parser defaults are set aside while the context is made and used, and every
    // setting the parse relies on is put on the context itself (ParserSetup.h).
    const detail::ParserDefaults defaults;
    const detail::LibraryParse gate;
    detail::DiagnosticSink sink;
    sink.list = &list;
    sink.source = &options.sourceName;
    // The context is freed on every path, an exception unwinding through libxml2 included,
    // together with any partial tree the parse left in it (ParserContext.h).
    const detail::ParserContext context(xmlNewParserCtxt());
    if (!context)
        return nullptr;
    detail::configureDocumentContext(context.get(), &sink);
    try {
        return read(context.get(), parseOptions);
    } catch (...) {
        // Nothing may escape a parse (an allocation failure in a callback, say): the document
        // simply stays empty.
        return nullptr;
    }
}

// A descriptor read by libxml2 in blocks as it parses; `error` keeps the errno of a failed read.
struct DescriptorInput {
    int fd;
    int error;
};

int readDescriptor(void* context, char* buffer, int length)
{
    auto* const input = static_cast<DescriptorInput*>(context);
    for (;;) {
        const ssize_t got = ::read(input->fd, buffer, static_cast<std::size_t>(length));
        if (got >= 0)
            return static_cast<int>(got);
        if (errno != EINTR) {
            input->error = errno;
            return -1;
        }
    }
}

// The rest of `fd` into `text`: 0, or the errno of the read that failed.
int readAll(int fd, std::string& text)
{
    char block[1 << 16];
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got > 0)
            text.append(block, static_cast<std::size_t>(got));
        else if (got == 0)
            return 0;
        else if (errno != EINTR)
            return errno;
    }
}

} // namespace

XmlDocument::XmlDocument() : doc(nullptr), xpathIterator(nullptr), root(new XmlNode)
{
    libXMLStartup();
}

XmlDocument::~XmlDocument()
{
    reset();
    root.reset();
}

void XmlDocument::reset()
{
    if (doc != nullptr) {
        xmlFreeDoc(doc);
        doc = nullptr;
    }
    if (xpathIterator != nullptr) {
        delete xpathIterator;
        xpathIterator = nullptr;
    }
    // The root handle outlives the tree (callers may hold it); pointing it at nothing means an
    // old root handle reports no node rather than one inside the freed tree.
    if (root)
        root->Initialize(nullptr);
}

int XmlDocument::Load(const std::string& text, bool recover)
{
    XmlLoadOptions options;
    options.recover = recover;
    return Load(text, options);
}

int XmlDocument::Load(const std::string& text, const XmlLoadOptions& options)
{
    diagnostics.clear();
    repaired = false;
    std::string scratch;
    const char* data = text.data();
    std::size_t size = text.size();
    if (options.sanitize) {
        const XmlHelper::TextView clean = XmlHelper::sanitize(text, scratch);
        // The view refers to the caller's text unless the gate had to repair it.
        repaired = !text.empty() && clean.data != text.data();
        data = clean.data;
        size = clean.size;
    }
    reset();
    if (size == 0 || size > static_cast<std::size_t>(INT_MAX))
        return -1;
    doc = parse(options, diagnostics, [data, size](xmlParserCtxt* context, int parseOptions) {
        return xmlCtxtReadMemory(context, data, static_cast<int>(size), kDocumentUrl, nullptr, parseOptions);
    });
    return doc != nullptr ? 0 : -1;
}

int XmlDocument::LoadFd(int fd, const XmlLoadOptions& options)
{
    std::string text;
    int error = 0;
    if (options.sanitize) {
        // The repair works on the whole text.
        error = readAll(fd, text);
        if (error == 0)
            return Load(text, options);
    }
    diagnostics.clear();
    repaired = false;
    reset();
    if (error != 0) {
        detail::addFailure(diagnostics, options.sourceName, std::string("cannot read: ") + std::strerror(error));
        return -1;
    }
    DescriptorInput input{fd, 0};
    doc = parse(options, diagnostics, [&input](xmlParserCtxt* context, int parseOptions) {
        return xmlCtxtReadIO(context, readDescriptor, nullptr, &input, kDocumentUrl, nullptr, parseOptions);
    });
    if (input.error != 0) {
        // libxml2 reports a failed read as a generic I/O error; say what it was.
        detail::addFailure(diagnostics, options.sourceName, std::string("cannot read: ") + std::strerror(input.error));
        if (doc != nullptr) {
            xmlFreeDoc(doc);
            doc = nullptr;
        }
    }
    return doc != nullptr ? 0 : -1;
}

int XmlDocument::LoadFile(const std::string& path, const XmlLoadOptions& options)
{
    std::string failure;
    const int fd = detail::openForReading(path, failure);
    if (fd < 0) {
        diagnostics.clear();
        repaired = false;
        reset();
        detail::addFailure(diagnostics, options.sourceName, failure);
        return -1;
    }
    int result = -1;
    try {
        result = LoadFd(fd, options);
    } catch (...) {
        ::close(fd);
        throw;
    }
    ::close(fd);
    return result;
}

const XmlDiagnostics& XmlDocument::GetDiagnostics() const { return diagnostics; }

bool XmlDocument::WasRepaired() const { return repaired; }

XmlNodePtr XmlDocument::GetRoot()
{
    if (doc == nullptr)
        return XmlNodePtr();
    xmlNode* const element = xmlDocGetRootElement(doc);
    root->Initialize(element);
    if (element == nullptr)
        return XmlNodePtr();
    return root;
}

XmlDocumentPtr CreateXmlDocument() { return XmlDocumentPtr(new XmlDocument); }

XmlDocumentPtr CreateXmlDocument(const std::string& text)
{
    XmlDocumentPtr document(new XmlDocument);
    if (document->Load(text, false) != 0 || !document->GetRoot())
        return XmlDocumentPtr();
    return document;
}

int Create(XmlDocumentPtr& document)
{
    document.reset(new XmlDocument);
    return 0;
}

int Create(XmlDocumentPtr& document, const std::string& text)
{
    Create(document);
    if (document->Load(text, false) != 0) {
        document.reset();
        return -1;
    }
    return 0;
}

} // namespace tarn
