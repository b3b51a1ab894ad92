#pragma once
// tarn::XmlReader: a forward-only pull reader over XML text held in memory (libxml2's
// xmlTextReader), without building a tree.
//
// Ownership
//   The reader owns a copy of the text it reads and the libxml2 reader over it; the text changes
//   only through reset(text), which at once reopens the reader over the new text. Every string
//   libxml2 allocates is copied into a std::string and freed (through XmlCharDeleter) on every
//   path. The reader cannot be copied.
//
// Results
//   libxml2's error results and missing strings become neutral values: movements and predicates
//   give false, numbers 0 (state() gives -1 when closed), texts "". read() returns false both at
//   the end and after a parse error; state() tells them apart (XML_TEXTREADER_MODE_EOF = 3,
//   XML_TEXTREADER_MODE_ERROR = 2). Parse errors are not thrown: each reader collects them
//   through a structured error handler of its own (diagnostics()). Beyond that, a reader over
//   text in memory reports each one as libxml2 does by default: to the structured handler the
//   host set on the reading thread (xmlSetStructuredErrorFunc), or, without one, printed in
//   libxml2's layout through the thread's generic error function (standard error unless
//   silenced with xmlSetGenericErrorFunc). A streaming reader (openFile, openFd) only forwards
//   to the host's structured handler and prints nothing.
//   Options are libxml2's defaults (options 0): no entity substitution, no DTD loading, no
//   validation. They hold whatever the host process set as libxml2's global defaults: the reader
//   is made with those defaults set aside and its parser properties set explicitly, and no file
//   or socket is ever opened for an external entity or DTD (see XmlDocument.h for the loader).
//
// Attribute values
//   value() on an attribute and getAttribute give libxml2's text (entity references expanded),
//   read in time linear in its size, with the expansion budget of XmlNode::GetAttribute: a value
//   past 1 MiB + 10 times its source reads as "".
//
// Null text
//   A null zero-terminated string given to XmlReader(const char*) or reset(const char*) is taken
//   as empty text: the reader stays closed and nothing is thrown.
//
// Threads
//   One reader is used by one thread at a time; separate readers are independent.
//
// Errors
//   Only std::bad_alloc leaves the reader (libxml2 could not create its reader, or a copy failed).
#include <memory>
#include <string>

#include "tarnxml/XmlDiagnostics.h"
#include "tarnxml/tarnxml_export.h"

struct _xmlTextReader;

// Frees a libxml2-allocated string (xmlFree) when it is not null.
struct TARNXML_API XmlCharDeleter {
    void operator()(unsigned char* text) const noexcept;
};

namespace tarn {

namespace detail {
struct ReaderExtras;
}

// Names for the values of XmlReader::nodeType (libxml2's xmlReaderTypes).
struct XmlReaderNodeType {
    enum : int {
        None = 0,
        Element = 1,
        Attribute = 2,
        Text = 3,
        CData = 4,
        EntityReference = 5,
        Entity = 6,
        ProcessingInstruction = 7,
        Comment = 8,
        Document = 9,
        DocumentType = 10,
        DocumentFragment = 11,
        Notation = 12,
        Whitespace = 13,
        SignificantWhitespace = 14,
        EndElement = 15,
        EndEntity = 16,
        XmlDeclaration = 17
    };
};

// How openFile / openFd read.
struct XmlReaderOptions {
    bool huge = false;      // XML_PARSE_HUGE: lifts libxml2's depth 256 / 10 MB text limits
    std::string sourceName; // travels in the diagnostics
    std::string encoding;   // "" = detect (BOM, declaration), else forced (e.g. "ISO-8859-1")
};

class TARNXML_API XmlReader {
public:
    XmlReader();
    explicit XmlReader(const char* text);
    explicit XmlReader(const std::string& text);
    ~XmlReader();
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    // Frees the libxml2 reader; the text is kept.
    void close();
    // Reopens at the start of the held text (stays closed for empty text).
    void reset();
    void reset(const char* text);
    void reset(const std::string& text);

    // Movement: true when libxml2 reports a positive result.
    bool read();
    bool readAttributeValue();
    // The node after the current one, skipping its subtree.
    bool nextElement();
    // Only implemented by libxml2 for readers over a tree: false for text readers.
    bool nextSibling();
    bool firstAttribute();
    bool nextAttribute();
    bool moveToElement();
    bool moveToAttribute(int index);
    bool moveToAttribute(const char* name);
    bool moveToAttribute(const std::string& name);

    // Predicates.
    bool hasValue() const;
    bool isDefault() const;
    bool isEmpty() const;
    bool isNamespaceDecl() const;
    bool isValid() const;
    bool hasAttributes() const;

    // Numbers.
    int state() const;
    // libxml2's xmlReaderTypes (1 element ... 15 end element ... 17 XML declaration), else 0.
    int nodeType() const;
    int depth() const;
    int attributeCount() const;
    char quoteChar() const;

    // Texts.
    std::string baseUri() const;
    std::string localName() const;
    std::string name() const;
    std::string namespaceURI() const;
    std::string prefix() const;
    std::string value() const;
    std::string lookupNamespace(const char* prefix) const;
    std::string lookupNamespace(const std::string& prefix) const;
    std::string getAttribute(int index) const;
    std::string getAttribute(const char* name) const;
    std::string getAttribute(const std::string& name) const;
    std::string getAttribute(const char* localName, const char* namespaceURI) const;
    std::string getAttribute(const std::string& localName, const std::string& namespaceURI) const;
    std::string innerXml();
    std::string outerXml();
    std::string encoding() const;
    std::string lang() const;
    std::string xmlVersion() const;

    // Typed values; both always assign `out`.
    void value(std::string& out) const;
    // "1", or "true" in any ASCII letter case; everything else (blanks included) is false.
    void value(bool& out) const;

    // Copies a libxml2-allocated string and frees it; "" for null.
    std::string xmlCharToString(unsigned char* text) const;
    // Copies a string that libxml2 keeps; "" for null.
    std::string xmlCharToString(const unsigned char* text) const;
    bool xmlIntToBool(int value) const;

    // --- Streaming, diagnostics ---------------------------------------------------------------
    // Read a file / a descriptor incrementally (xmlReaderForFd): the same getters, in constant
    // memory whatever the size (libxml2 frees each subtree once the reader has passed it). Any
    // open reader is closed first and the held text is cleared. false when the file cannot be
    // opened or the descriptor is negative (the reader is then closed). openFile closes its file
    // in close(), reset() and the destructor; the descriptor given to openFd is never closed by
    // the reader and must stay open until close(). A stream cannot be rewound: reset() closes it
    // and reopens the held text, which is empty then (the reader stays closed). Options beyond
    // XmlReaderOptions are those of the in-memory reader; invalid UTF-8, control characters and
    // NUL bytes end the read with an error (read() false, state() 2, a diagnostic).
    bool openFile(const std::string& path, const XmlReaderOptions& options);
    bool openFd(int fd, const XmlReaderOptions& options);
    // Errors and warnings met while reading so far (since the last open or reset), in order;
    // they are kept by close(). Valid until the next open, reset or destruction.
    const XmlDiagnostics& diagnostics() const;

private:
    _xmlTextReader* reader;
    std::string text;
    // Diagnostics and stream state (XmlReaderStream.cpp); made on the first open.
    std::unique_ptr<detail::ReaderExtras> extras;
};

} // namespace tarn
