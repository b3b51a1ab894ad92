// Library start-up and shutdown, the scratch document and its lock, diagnostics.
#include "Diagnostics.h"
#include "Lifecycle.h"

#include "tarn/shared.h"
#include "tarnxml/XmlNode.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlmemory.h>

#include <cstdlib>

namespace tarn {

_xmlDoc* g_tempDoc = nullptr;

namespace {

// Made while the library is loaded, in this order: the root logger handle, then the mutex.
// boost::mutex throws boost::thread_resource_error if pthread_mutex_init fails, which then fails
// the loading of the library.
const log4cplus::Logger g_rootLogger = log4cplus::Logger::getRoot();
boost::mutex g_tempDocMutex;

int g_libXMLStarted = 0;
bool g_shutdownRegistered = false;

void shutdownAtExit() { libXMLShutdown(); }

} // namespace

namespace detail {

boost::mutex& tempDocMutex() { return g_tempDocMutex; }

const log4cplus::Logger& nodeLogger() { return g_rootLogger; }

void assertionReport(const char* path, int line) noexcept
{
    try {
        const StackTrace stack;
        AssertWrite(path, line, stack);
    } catch (...) {
        // A report must never change the outcome of the operation that makes it.
    }
}

} // namespace detail

void libXMLStartup()
{
    if (g_libXMLStarted)
        return;
    xmlInitParser();
    if (!g_shutdownRegistered) {
        std::atexit(shutdownAtExit);
        g_shutdownRegistered = true;
    }
    g_tempDoc = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
    if (!g_tempDoc) {
        // Out of memory: leave the flag unset so that the next call tries again; until then
        // SerializeOuterXml reports an empty result.
        return;
    }
    g_libXMLStarted = 1;
    g_tempDoc->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("utf-8"));
}

void libXMLShutdown()
{
    xmlCleanupMemory();
    xmlCleanupParser();
}

} // namespace tarn
