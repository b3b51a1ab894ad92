// XmlDocument: parsing text into an owned libxml2 tree, the shared root handle, the factories.
#include "tarnxml/XmlDocument.h"

#include "ParserSetup.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"

#include "ParserContext.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>
#include <memory>

namespace tarn {

namespace {

// No error printing, no network, names and texts allocated per node (no dictionary), so that
// nodes can be moved into other trees or freed on their own. Entities are not substituted and
// no DTD is loaded: a document cannot make the parser read files or expand entity chains.
constexpr int kParseOptions = XML_PARSE_NOERROR | XML_PARSE_NONET | XML_PARSE_NODICT;

// The base URL of every loaded document.
constexpr const char* kDocumentUrl = "dummy.xml";

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
    int parseOptions = options.recover ? (kParseOptions | XML_PARSE_RECOVER) : kParseOptions;
    if (options.huge)
        parseOptions |= XML_PARSE_HUGE;
    if (options.readOnly)
        parseOptions &= ~XML_PARSE_NODICT;
    // The host's parser defaults are set aside while the context is made and used, and every
    // setting the parse relies on is put on the context itself (ParserSetup.h).
    const detail::ParserDefaults defaults;
    const detail::LibraryParse gate;
    detail::DiagnosticSink sink;
    sink.list = &diagnostics;
    sink.source = &options.sourceName;
    // The context is freed on every path, an exception unwinding through libxml2 included,
    // together with any partial tree the parse left in it (ParserContext.h).
    const detail::ParserContext context(xmlNewParserCtxt());
    if (!context)
        return -1;
    detail::configureDocumentContext(context.get(), &sink);
    try {
        doc = xmlCtxtReadMemory(context.get(), data, static_cast<int>(size), kDocumentUrl, nullptr,
                                parseOptions);
    } catch (...) {
        // Nothing may escape a parse (an allocation failure in a callback, say): the document
        // simply stays empty.
        doc = nullptr;
    }
    return doc != nullptr ? 0 : -1;
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
