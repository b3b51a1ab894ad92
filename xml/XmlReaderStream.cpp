// XmlReader: reading from a file or a descriptor, the reader's parser set-up and diagnostics.
#include "ParserSetup.h"
#include "ReaderExtras.h"
#include "tarnxml/XmlReader.h"

#include <libxml/encoding.h>
#include <libxml/xmlmemory.h>
#include <libxml/xmlreader.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn {
namespace detail {

ReaderExtras& beginRead(std::unique_ptr<ReaderExtras>& extras, const std::string& source)
{
    if (!extras)
        extras.reset(new ReaderExtras);
    extras->diagnostics.clear();
    extras->source = source;
    extras->sink.list = &extras->diagnostics;
    extras->sink.source = &extras->source;
    extras->sink.printWithoutHost = false;
    return *extras;
}

_xmlTextReader* adoptReader(_xmlTextReader* made, ReaderExtras& extras)
{
    if (made == nullptr)
        throw std::bad_alloc();
    // Options 0 already mean all of these; setting them again states it on this reader's own
    // context, whatever its defaults were.
    xmlTextReaderSetParserProp(made, XML_PARSER_SUBST_ENTITIES, 0);
    xmlTextReaderSetParserProp(made, XML_PARSER_LOADDTD, 0);
    xmlTextReaderSetParserProp(made, XML_PARSER_DEFAULTATTRS, 0);
    xmlTextReaderSetParserProp(made, XML_PARSER_VALIDATE, 0);
    xmlTextReaderSetStructuredErrorHandler(made, collectDiagnosticHandler, &extras.sink);
    return made;
}

void closeOwnedFile(ReaderExtras* extras) noexcept
{
    if (extras != nullptr && extras->ownedFd >= 0) {
        ::close(extras->ownedFd);
        extras->ownedFd = -1;
    }
}

namespace {

// A diagnostic of the library's own (the stream could not be opened).
void addDiagnostic(ReaderExtras& extras, const std::string& message)
{
    addFailure(extras.diagnostics, extras.source, message);
}

} // namespace

} // namespace detail

bool XmlReader::openFd(int fd, const XmlReaderOptions& options)
{
    close();
    text.clear();
    detail::ReaderExtras& state = detail::beginRead(extras, options.sourceName);
    if (fd < 0) {
        detail::addDiagnostic(state, "invalid file descriptor");
        return false;
    }
    if (!options.encoding.empty() && !detail::knownEncoding(options.encoding)) {
        detail::addDiagnostic(state, "unknown encoding " + options.encoding);
        return false;
    }
    const detail::ParserDefaults defaults;
    const char* const encodingName = options.encoding.empty() ? nullptr : options.encoding.c_str();
    reader = detail::adoptReader(xmlReaderForFd(fd, "", encodingName, options.huge ? XML_PARSE_HUGE : 0),
                                 state);
    return true;
}

bool XmlReader::openFile(const std::string& path, const XmlReaderOptions& options)
{
    close();
    text.clear();
    std::string failure;
    const int fd = detail::openForReading(path, failure);
    if (fd < 0) {
        detail::addDiagnostic(detail::beginRead(extras, options.sourceName), failure);
        return false;
    }
    try {
        if (!openFd(fd, options)) {
            ::close(fd);
            return false;
        }
    } catch (...) {
        ::close(fd);
        throw;
    }
    extras->ownedFd = fd;
    return true;
}

const XmlDiagnostics& XmlReader::diagnostics() const
{
    static const XmlDiagnostics none;
    return extras ? extras->diagnostics : none;
}

} // namespace tarn
