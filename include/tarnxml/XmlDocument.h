#pragma once
// tarn::XmlDocument: owns one parsed libxml2 tree and hands out its root element.
//
// Ownership
//   The document owns its tree; every node handle into it (the root handle included) refers
//   without owning and must not be used once the tree is freed by reset, a new Load or the
//   destructor (the root handle is re-pointed by the next GetRoot). The document owns its XPath
//   iterator (freed on reset, reload and destruction) and one root handle, shared by every
//   GetRoot caller. Documents are handed out as boost::shared_ptr<XmlDocument>; the class
//   cannot be copied (use Copy for a deep copy).
//
// Parsing
//   Load sanitises the text (invalid UTF-8 repaired, control characters made "?"), frees the
//   previous tree, then parses with xmlReadMemory under the URL "dummy.xml" with
//   XML_PARSE_NOERROR | XML_PARSE_NONET | XML_PARSE_NODICT (plus XML_PARSE_RECOVER when asked):
//   no entity substitution, no DTD loading, no network, no error printing. libxml2 still
//   records the last error (xmlGetLastError) for callers that want line and column.
//   Untrusted input: entities are never substituted and nothing is fetched, but libxml2 checks
//   an element's attribute names for duplicates pairwise, so n attributes on one element cost
//   O(n^2) time (100 000 attributes take seconds); bound the size of what you parse.
//
// Threads
//   One thread at a time per document and its handles; different documents are independent.
//
// Errors
//   Result codes and empty shared pointers; std::bad_alloc may propagate from the factories.
#include <string>

#include <boost/shared_ptr.hpp>

#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

namespace tarn {

class XPathExpression;

// How XmlDocument::ToString prints. The output never depends on libxml2's per-thread output
// settings a host may have changed (xmlIndentTreeOutput, xmlTreeIndentString,
// xmlSaveNoEmptyTags): two-space indentation, empty elements as <a/>.
struct XmlSaveOptions {
    // false: the tree as it is (xmllint FILE). true: as xmllint --format FILE prints it: the
    // document is printed, re-read with libxml2's blank removal (XML_PARSE_NOBLANKS, the
    // parse xmllint --format makes) and printed indented; when the printed tree cannot be
    // re-read (names set through SetName that are not XML names, say) it is printed
    // indented as it is, where whitespace text already present suppresses the indentation.
    bool format = false;
    // "" = the document's declared encoding (no declared encoding: UTF-8 with characters
    // beyond ASCII written as character references, as xmllint does); otherwise any encoding
    // libxml2 knows, the declaration rewritten to name it and characters it cannot hold
    // written as character references.
    std::string encoding;
};

class TARNXML_API XmlDocument {
public:
    // An empty document (no tree); starts the library.
    XmlDocument();
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    // Frees the tree and the XPath iterator. The root handle is kept but pointed at nothing.
    void reset();
    // Replaces the tree by the parse of `text`: 0, or -1 (the document is then empty and the
    // previous tree gone). Empty text gives -1.
    int Load(const std::string& text, bool recover);
    // The shared root handle pointed at the root element, or an empty pointer without one.
    XmlNodePtr GetRoot();
    // The root handle's child iterator, or null without a root element.
    XmlNodeIterator* GetIterator();
    // Evaluates `xpath` on the document (absolute context) and returns the document's XPath
    // iterator, or null when no tree is loaded. A failed or non-node-set expression keeps the
    // previous result and position. The pointer is invalid after reset, reload or destruction.
    XPathNodeIterator* GetIterator(const std::string& xpath);
    // The same with the prefixes of `ns` bound (see XmlNode::GetIterator(xpath, ns)).
    XPathNodeIterator* GetIterator(const std::string& xpath, const XmlNamespaceBindings& ns);
    // The whole document as xmllint prints it, byte for byte: declaration, DOCTYPE with its
    // internal subset, comments and PIs outside the root, entity references kept as references.
    // "" when no tree is loaded or the encoding is unknown to libxml2. The tree is not changed.
    // Bytes in the chosen encoding (UTF-16 output holds zero bytes).
    std::string ToString(const XmlSaveOptions& options) const;
    // A deep copy that shares nothing with this document; an empty document when this is empty.
    boost::shared_ptr<XmlDocument> Copy() const;

private:
    friend class XPathExpression;
    _xmlDoc* doc;
    XPathNodeIterator* xpathIterator;
    XmlNodePtr root;
};

typedef boost::shared_ptr<XmlDocument> XmlDocumentPtr;

// A new empty document.
TARNXML_API XmlDocumentPtr CreateXmlDocument();
// A document parsed from `text` (recover off), or an empty pointer when it does not parse or
// has no root element.
TARNXML_API XmlDocumentPtr CreateXmlDocument(const std::string& text);
// The source's Copy, or an empty pointer when `source` is empty.
TARNXML_API XmlDocumentPtr CreateXmlDocument(const XmlDocumentPtr& source);
// Stores a new empty document in `document`; 0.
TARNXML_API int Create(XmlDocumentPtr& document);
// As above, then Load(text, false); on failure `document` is emptied and -1 returned.
TARNXML_API int Create(XmlDocumentPtr& document, const std::string& text);

} // namespace tarn
