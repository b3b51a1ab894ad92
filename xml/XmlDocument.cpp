// XmlDocument: parsing text into an owned libxml2 tree, the shared root handle, the factories.
#include "tarnxml/XmlDocument.h"

#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlIterators.h"

#include "ParserContext.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>

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
    std::string scratch;
    const XmlHelper::TextView clean = XmlHelper::sanitize(text, scratch);
    reset();
    if (clean.size == 0 || clean.size > static_cast<unsigned int>(INT_MAX))
        return -1;
    const int options = recover ? (kParseOptions | XML_PARSE_RECOVER) : kParseOptions;
    try {
        // xmlReadMemory with the context in our hands, so that it is freed even when an
        // exception unwinds through the parse.
        const detail::ParserContext context(xmlNewParserCtxt());
        if (context)
            doc = xmlCtxtReadMemory(context.get(), clean.data, static_cast<int>(clean.size), kDocumentUrl, nullptr,
                                    options);
    } catch (...) {
        // Nothing may escape a parse (an allocation failure in a callback, say): the document
        // simply stays empty.
        doc = nullptr;
    }
    return doc != nullptr ? 0 : -1;
}

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
