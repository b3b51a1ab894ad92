#pragma once
// Counts libxml2's own allocations (xmlMalloc, xmlRealloc, xmlMemStrdup, xmlFree) while alive, and
// can make them fail on request, to prove who frees which node and what happens when libxml2
// runs out of memory. Install it only while one thread uses libxml2: the hooks are process-wide.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

namespace tarntest {

class LibxmlAllocations {
public:
    LibxmlAllocations()
    {
        xmlInitParser();
        xmlMemGet(&savedFree_, &savedMalloc_, &savedRealloc_, &savedStrdup_);
        live_ = 0;
        budget_ = -1;
        xmlMemSetup(countingFree, countingMalloc, countingRealloc, countingStrdup);
    }
    ~LibxmlAllocations() { xmlMemSetup(savedFree_, savedMalloc_, savedRealloc_, savedStrdup_); }
    LibxmlAllocations(const LibxmlAllocations&) = delete;
    LibxmlAllocations& operator=(const LibxmlAllocations&) = delete;

    // Blocks allocated and not yet freed since construction (negative when blocks made before
    // were freed meanwhile).
    long outstanding() const { return live_; }
    // The next `count` allocations succeed, every later one fails, until allowAll().
    void failAfter(long count) { budget_ = count; }
    void allowAll() { budget_ = -1; }

private:
    // Allocations still allowed before they fail; negative: no limit.
    static bool refuse()
    {
        const long left = budget_.load();
        if (left > 0)
            budget_ = left - 1;
        return left == 0;
    }
    static void countingFree(void* block)
    {
        live_ -= block ? 1 : 0;
        std::free(block);
    }
    static void* countingMalloc(size_t size)
    {
        void* block = refuse() ? nullptr : std::malloc(size);
        live_ += block ? 1 : 0;
        return block;
    }
    static void* countingRealloc(void* block, size_t size)
    {
        void* grown = refuse() ? nullptr : std::realloc(block, size);
        live_ += !block && grown ? 1 : 0; // a realloc of null is a new block
        return grown;
    }
    static char* countingStrdup(const char* text)
    {
        char* copy = static_cast<char*>(countingMalloc(std::strlen(text) + 1));
        return copy ? std::strcpy(copy, text) : nullptr;
    }

    static inline std::atomic<long> live_{0};
    static inline std::atomic<long> budget_{-1};
    xmlFreeFunc savedFree_ = nullptr;
    xmlMallocFunc savedMalloc_ = nullptr;
    xmlReallocFunc savedRealloc_ = nullptr;
    xmlStrdupFunc savedStrdup_ = nullptr;
};

} // namespace tarntest
