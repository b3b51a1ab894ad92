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
//   Every parser setting is put on the parser context explicitly: whatever the host process set
//   as libxml2's global defaults (xmlSubstituteEntitiesDefault, xmlLoadExtDtdDefaultValue,
//   xmlKeepBlanksDefault, validation, a custom external entity loader), Load substitutes no
//   entity, loads no DTD and opens no file or socket; the library's external entity loader
//   refuses every request made during its own parses and passes others on to the loader that
//   was installed before it (installed at the first Load or reader open).
//   Diagnostics: libxml2's errors and warnings for each Load are collected through a structured
//   handler on that parse's own context (GetDiagnostics); nothing is printed. A structured
//   handler the host set on the loading thread (xmlSetStructuredErrorFunc) still receives each
//   error, as before.
//   Untrusted input: entities are never substituted and nothing is fetched, but libxml2 checks
//   an element's attribute names for duplicates pairwise, so n attributes on one element cost
//   O(n^2) time (100 000 attributes take seconds); bound the size of what you parse.
//
// Read-only documents (XmlLoadOptions::readOnly)
//   Parsed with libxml2's string dictionary (without XML_PARSE_NODICT): names and short texts are
//   shared in one table owned by the document, which makes loading faster and the tree smaller.
//   Everything else is as Load. Callers may read, query, serialise, copy and clone such a
//   document, and also change it (set names, texts and attributes, add, remove): libxml2 keeps
//   the dictionary consistent. The hazard is a node leaving the document while its strings stay
//   in the dictionary; the library therefore gives a node its own strings (a copy of each
//   dictionary string in its subtree) whenever it moves to another document (AddChild and
//   AddSibling with a handle) or leaves through SerializeOuterXml, so moved nodes outlive the
//   read-only document safely. What callers must not do is move such nodes with libxml2's own
//   functions (getlibXML2Node, then xmlAddChild, xmlUnlinkNode and friends): those moves bypass
//   the library and carry dictionary strings into trees that will free them with xmlFree.
//
// Threads
//   One thread at a time per document and its handles; different documents are independent.
//
// Errors
//   Result codes and empty shared pointers; std::bad_alloc may propagate from the factories.
#include <iosfwd>
#include <string>

#include <boost/shared_ptr.hpp>

#include "tarnxml/XmlDiagnostics.h"
#include "tarnxml/XmlNode.h"
#include "tarnxml/tarnxml_export.h"

namespace tarn {

// How XmlDocument::Load(text, options) parses. The defaults are exactly Load(text, false).
struct XmlLoadOptions {
    bool recover = false;   // XML_PARSE_RECOVER: keep what libxml2 can mend of a broken text
    bool sanitize = true;   // false: the text goes to libxml2 unrepaired, so invalid UTF-8,
                            // control characters and NUL bytes are parse errors with line/column
    bool huge = false;      // XML_PARSE_HUGE: lifts libxml2's depth 256 / 10 MB text limits
    bool readOnly = false;  // parse with libxml2's dictionary; see "Read-only documents" above
    std::string sourceName; // travels in the diagnostics; the parse URL stays "dummy.xml"
    // XML_PARSE_NOBLANKS: whitespace-only text between elements is dropped where libxml2
    // judges it ignorable, the parse xmllint --format makes. ToString/SaveTo with format then
    // indent the tree directly (see XmlSaveOptions::format).
    bool noBlanks = false;
};

class XPathExpression;

// How XmlDocument::ToString prints. The output never depends on libxml2's per-thread output
// settings a host may have changed (xmlIndentTreeOutput, xmlTreeIndentString,
// xmlSaveNoEmptyTags): the indentation below, empty elements as <a/>.
struct XmlSaveOptions {
    // false: the tree as it is (xmllint FILE). true: as xmllint --format FILE prints it: the
    // document is printed, re-read with libxml2's blank removal (XML_PARSE_NOBLANKS, the
    // parse xmllint --format makes) and printed indented; when the printed tree cannot be
    // re-read (names set through SetName that are not XML names, say) it is printed
    // indented as it is, where whitespace text already present suppresses the indentation.
    // A document loaded with XmlLoadOptions::noBlanks already had that parse: it is printed
    // indented directly, without the copy (exactly xmllint --format's parse and print;
    // whitespace text added since loading suppresses indentation where it stands).
    bool format = false;
    // "" = the document's declared encoding (no declared encoding: UTF-8 with characters
    // beyond ASCII written as character references, as xmllint does); otherwise any encoding
    // libxml2 knows, the declaration rewritten to name it and characters it cannot hold
    // written as character references.
    std::string encoding;
    // With format: what one level of indentation prints, spaces and tabs only, at most 60 bytes
    // (libxml2's limit); "" breaks lines without indenting. Anything else makes ToString give "".
    std::string indent = "  ";
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

    // --- Loading with options, diagnostics -------------------------------------------------
    // Load with options: same steps and result codes as Load(text, recover), which is exactly
    // Load(text, XmlLoadOptions{recover}). Both record diagnostics.
    int Load(const std::string& text, const XmlLoadOptions& options);
    // The errors and warnings libxml2 reported during the last Load (success or failure), in
    // order; empty before the first Load. Valid until the next Load or destruction.
    const XmlDiagnostics& GetDiagnostics() const;
    // True when the last Load's text was repaired by the UTF-8 gate (sanitize on).
    bool WasRepaired() const;

    // --- Loading from a file or descriptor, printing to a stream ----------------------------
    // Load(whole content of the file, options), with the same result codes and diagnostics,
    // but without holding the text: with sanitize off the file is handed to libxml2 in blocks
    // as it parses, so only the tree stays in memory (with sanitize on it is read whole first,
    // since the repair needs the whole text). One difference follows from reading in blocks:
    // without `huge`, libxml2 also refuses a single text node over 10 MB that it would have
    // taken in one piece from memory. A file that cannot be opened or read gives -1 with a
    // diagnostic saying why ("cannot open PATH: No such file or directory"); an empty file
    // gives -1 with libxml2's "Document is empty" (Load("") gives -1 without a diagnostic).
    int LoadFile(const std::string& path, const XmlLoadOptions& options);
    // The same from an open descriptor, read from its current position to its end; `fd` is not
    // closed.
    int LoadFd(int fd, const XmlLoadOptions& options);
    // Writes to `out` exactly what ToString(options) returns, as it is produced, so that the
    // printout is never held whole in memory. False, with nothing written, where ToString
    // gives ""; false too when `out` fails while writing (part of the output may then have been
    // written). The tree is not changed.
    bool SaveTo(std::ostream& out, const XmlSaveOptions& options) const;

private:
    friend class XPathExpression;
    _xmlDoc* doc;
    XPathNodeIterator* xpathIterator;
    XmlNodePtr root;
    XmlDiagnostics diagnostics;
    bool repaired = false;
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
