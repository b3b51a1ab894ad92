// XmlDocument::ToString: the whole document printed the way xmllint prints it, through the
// same libxml2 save path (xmlSaveToBuffer + xmlSaveDoc).
#include "tarnxml/XmlDocument.h"

#include "ParserSetup.h"

#include <libxml/encoding.h>
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <climits>
#include <memory>
#include <new>
#include <ostream>

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

// Prints `doc` through `context` and closes it: false when printing or flushing failed.
bool saveThrough(xmlSaveCtxt* context, xmlDoc* doc)
{
    const long written = xmlSaveDoc(context, doc);
    // xmlSaveClose flushes the encoder into the output; its result counts bytes or is -1.
    const int closed = xmlSaveClose(context);
    return written >= 0 && closed >= 0;
}

// Prints `doc` into a new buffer; null when the encoding is unknown or printing failed.
std::unique_ptr<xmlBuffer, BufferDeleter> save(xmlDoc* doc, const char* encoding, int options)
{
    std::unique_ptr<xmlBuffer, BufferDeleter> buffer(xmlBufferCreate());
    if (!buffer)
        throw std::bad_alloc();
    xmlSaveCtxt* const context = xmlSaveToBuffer(buffer.get(), encoding, options);
    if (context == nullptr || !saveThrough(context, doc))
        return nullptr;
    return buffer;
}

// libxml2's output callback for SaveTo. A failed stream is not reported to libxml2, which would
// print an I/O error through its global handler; the rest goes nowhere and SaveTo reports it.
int writeToStream(void* context, const char* bytes, int length)
{
    static_cast<std::ostream*>(context)->write(bytes, length);
    return length;
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

// libxml2 repeats the indent string into a buffer of 60 bytes, so a longer one would print no
// indentation at all; anything but blanks would add text to the document.
bool usableIndent(const std::string& indent)
{
    return indent.size() <= 60 && indent.find_first_not_of(" \t") == std::string::npos;
}

} // namespace

namespace {

// What ToString and SaveTo print: the document itself, or (format) its copy without blanks when
// it was not parsed without them already. Null when nothing can be printed; `copy` keeps the copy.
xmlDoc* printable(xmlDoc* doc, const XmlSaveOptions& options, std::unique_ptr<xmlDoc, DocDeleter>& copy)
{
    // An unknown encoding is refused before printing, so that it gives "" quietly
    // (xmlSaveToBuffer would print an error through the global handler).
    if (doc == nullptr || !(options.encoding.empty() || detail::knownEncoding(options.encoding)) ||
        !usableIndent(options.indent))
        return nullptr;
    if (options.format && (doc->parseFlags & XML_PARSE_NOBLANKS) == 0) {
        copy = withoutBlanks(doc);
        if (copy)
            return copy.get();
    }
    return doc;
}

const char* encodingOf(const XmlSaveOptions& options)
{
    return options.encoding.empty() ? nullptr : options.encoding.c_str();
}

} // namespace

std::string XmlDocument::ToString(const XmlSaveOptions& options) const
{
    std::string result;
    const DefaultOutputSettings defaults(options.indent);
    std::unique_ptr<xmlDoc, DocDeleter> copy;
    xmlDoc* const target = printable(doc, options, copy);
    if (target == nullptr)
        return result;
    const std::unique_ptr<xmlBuffer, BufferDeleter> buffer =
        save(target, encodingOf(options), options.format ? XML_SAVE_FORMAT : 0);
    if (!buffer)
        return result;
    const int length = xmlBufferLength(buffer.get());
    if (length > 0)
        result.assign(reinterpret_cast<const char*>(xmlBufferContent(buffer.get())), static_cast<std::size_t>(length));
    return result;
}

bool XmlDocument::SaveTo(std::ostream& out, const XmlSaveOptions& options) const
{
    const DefaultOutputSettings defaults(options.indent);
    std::unique_ptr<xmlDoc, DocDeleter> copy;
    xmlDoc* const target = printable(doc, options, copy);
    if (target == nullptr)
        return false;
    xmlSaveCtxt* const context =
        xmlSaveToIO(writeToStream, nullptr, &out, encodingOf(options), options.format ? XML_SAVE_FORMAT : 0);
    if (context == nullptr)
        return false;
    return saveThrough(context, target) && out.good();
}

} // namespace tarn
