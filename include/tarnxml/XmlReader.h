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
//   XML_TEXTREADER_MODE_ERROR = 2). Parse errors are not thrown; libxml2 prints them through its
//   default error handler (silence them with xmlSetGenericErrorFunc / xmlSetStructuredErrorFunc).
//   Options are libxml2's defaults: no entity substitution, no DTD loading, no validation.
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
#include <string>

#include "tarnxml/tarnxml_export.h"

struct _xmlTextReader;

// Frees a libxml2-allocated string (xmlFree) when it is not null.
struct TARNXML_API XmlCharDeleter {
    void operator()(unsigned char* text) const noexcept;
};

namespace tarn {

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

private:
    _xmlTextReader* reader;
    std::string text;
};

} // namespace tarn
