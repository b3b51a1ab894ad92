// XmlDocument::ToString: the whole document printed the way xmllint prints it, through the
// same libxml2 save path (xmlSaveToBuffer + xmlSaveDoc).
#include "tarnxml/XmlDocument.h"

#include <libxml/encoding.h>
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <climits>
#include <memory>
#include <new>

namespace tarn {

namespace {

struct BufferDeleter {
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};

struct DocDeleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

// libxml2's save code reads three per-thread settings a host program may have changed. They are
// set to libxml2's defaults (what xmllint runs with) for the calling thread while we print, and
// given back afterwards.
class DefaultOutputSettings {
public:
    // `indent` must outlive the object; "" turns indentation off (line breaks stay).
    explicit DefaultOutputSettings(const std::string& indent)
        : indentTree_(xmlIndentTreeOutput), indentString_(xmlTreeIndentString), noEmpty_(xmlSaveNoEmptyTags)
    {
        xmlIndentTreeOutput = indent.empty() ? 0 : 1;
        xmlTreeIndentString = indent.empty() ? "  " : indent.c_str();
        xmlSaveNoEmptyTags = 0;
    }
    ~DefaultOutputSettings()
    {
        xmlIndentTreeOutput = indentTree_;
        xmlTreeIndentString = indentString_;
        xmlSaveNoEmptyTags = noEmpty_;
    }
    DefaultOutputSettings(const DefaultOutputSettings&) = delete;
    DefaultOutputSettings& operator=(const DefaultOutputSettings&) = delete;

private:
    int indentTree_;
    const char* indentString_;
    int noEmpty_;
};

// Prints `doc` into a new buffer; null when the encoding is unknown or printing failed.
std::unique_ptr<xmlBuffer, BufferDeleter> save(xmlDoc* doc, const char* encoding, int options)
{
    std::unique_ptr<xmlBuffer, BufferDeleter> buffer(xmlBufferCreate());
    if (!buffer)
        throw std::bad_alloc();
    xmlSaveCtxt* const context = xmlSaveToBuffer(buffer.get(), encoding, options);
    if (context == nullptr)
        return nullptr;
    const long written = xmlSaveDoc(context, doc);
    // xmlSaveClose flushes the encoder into the buffer; its result counts bytes or is -1.
    const int closed = xmlSaveClose(context);
    if (written < 0 || closed < 0)
        return nullptr;
    return buffer;
}

// xmllint --format parses with blank removal (XML_PARSE_NOBLANKS) and prints indented; our
// documents keep their blanks, whose text nodes would stop the indentation. The tree is
// printed in UTF-8 and read back the way xmllint reads, so the formatter sees what it sees.
// The text is our own printout of a tree that exists: no DTD is loaded, nothing fetched, no
// entity substituted, and the size limits are lifted because the original parse passed them.
std::unique_ptr<xmlDoc, DocDeleter> withoutBlanks(xmlDoc* doc)
{
    const std::unique_ptr<xmlBuffer, BufferDeleter> printed = save(doc, "UTF-8", 0);
    if (!printed)
        return nullptr;
    const int length = xmlBufferLength(printed.get());
    const int options = XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
                        XML_PARSE_HUGE | XML_PARSE_NODICT;
    std::unique_ptr<xmlDoc, DocDeleter> reread(xmlReadMemory(
        reinterpret_cast<const char*>(xmlBufferContent(printed.get())), length, nullptr, "UTF-8", options));
    if (!reread)
        return nullptr;
    // The printout declared UTF-8; the copy must print with the original's declared encoding.
    if (reread->encoding != nullptr)
        xmlFree(const_cast<xmlChar*>(reread->encoding));
    reread->encoding = doc->encoding != nullptr ? xmlStrdup(doc->encoding) : nullptr;
    if (doc->encoding != nullptr && reread->encoding == nullptr)
        throw std::bad_alloc();
    return reread;
}

// Asked first so that an unknown name gives "" quietly (xmlSaveToBuffer would print an error
// through the global handler).
bool knownEncoding(const std::string& name)
{
    if (name.empty())
        return true;
    xmlCharEncodingHandler* const handler = xmlFindCharEncodingHandler(name.c_str());
    if (handler == nullptr)
        return false;
    xmlCharEncCloseFunc(handler);
    return true;
}

// libxml2 repeats the indent string into a buffer of 60 bytes, so a longer one would print no
// indentation at all; anything but blanks would add text to the document.
bool usableIndent(const std::string& indent)
{
    return indent.size() <= 60 && indent.find_first_not_of(" \t") == std::string::npos;
}

} // namespace

std::string XmlDocument::ToString(const XmlSaveOptions& options) const
{
    std::string result;
    if (doc == nullptr || !knownEncoding(options.encoding) || !usableIndent(options.indent))
        return result;
    const DefaultOutputSettings defaults(options.indent);
    const char* const encoding = options.encoding.empty() ? nullptr : options.encoding.c_str();
    xmlDoc* target = doc;
    std::unique_ptr<xmlDoc, DocDeleter> reread;
    if (options.format) {
        reread = withoutBlanks(doc);
        if (reread)
            target = reread.get();
    }
    const std::unique_ptr<xmlBuffer, BufferDeleter> buffer =
        save(target, encoding, options.format ? XML_SAVE_FORMAT : 0);
    if (!buffer)
        return result;
    const int length = xmlBufferLength(buffer.get());
    if (length > 0)
        result.assign(reinterpret_cast<const char*>(xmlBufferContent(buffer.get())), static_cast<std::size_t>(length));
    return result;
}

} // namespace tarn
