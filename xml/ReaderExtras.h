#pragma once
// What an XmlReader keeps beside its libxml2 reader: the diagnostics of the current read, the
// input name they carry, and the file it opened itself (openFile).
#include "ParserSetup.h"
#include "tarnxml/XmlDiagnostics.h"

#include <memory>
#include <string>

struct _xmlTextReader;

namespace tarn {
namespace detail {

struct ReaderExtras {
    XmlDiagnostics diagnostics;
    std::string source;
    DiagnosticSink sink;
    int ownedFd = -1;
};

// Starts a new read: the diagnostics are cleared and `source` is what they will carry.
ReaderExtras& beginRead(std::unique_ptr<ReaderExtras>& extras, const std::string& source);

// Finishes setting up a libxml2 reader made while ParserDefaults held: the parser properties
// that matter are set explicitly and errors go to `extras`. Frees the reader and throws
// std::bad_alloc when `made` is null.
_xmlTextReader* adoptReader(_xmlTextReader* made, ReaderExtras& extras);

// xmlTextReaderGetAttribute / xmlTextReaderGetAttributeNs, values read in linear time
// (ReaderAttributes.cpp).
std::string readerAttribute(_xmlTextReader* reader, const char* name);
std::string readerAttribute(_xmlTextReader* reader, const char* localName, const char* namespaceURI);

// Closes the file openFile opened, if any.
void closeOwnedFile(ReaderExtras* extras) noexcept;

} // namespace detail
} // namespace tarn
