#pragma once
// Shared bits of the fuzz targets.
#include <libxml/xmlerror.h>

#include <cstdio>
#include <cstdlib>

namespace tarnfuzz {

inline void quietGeneric(void*, const char*, ...) {}
inline void quietStructured(void*, xmlErrorPtr) {}

// libxml2 prints parse and XPath errors through its handlers; the fuzzers have no use for them.
inline void silenceLibxml2()
{
    xmlSetGenericErrorFunc(nullptr, quietGeneric);
    xmlSetStructuredErrorFunc(nullptr, quietStructured);
}

// A property that does not hold: report and abort, so libFuzzer saves the input.
#define FUZZ_CHECK(condition)                                                                     \
    do {                                                                                          \
        if (!(condition)) {                                                                       \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                         \
        }                                                                                         \
    } while (0)

} // namespace tarnfuzz
