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
        live() = 0;
        failAfter() = -1;
        xmlMemSetup(countingFree, countingMalloc, countingRealloc, countingStrdup);
    }
    ~LibxmlAllocations() { xmlMemSetup(savedFree_, savedMalloc_, savedRealloc_, savedStrdup_); }
    LibxmlAllocations(const LibxmlAllocations&) = delete;
    LibxmlAllocations& operator=(const LibxmlAllocations&) = delete;

    // Blocks allocated and not yet freed since construction (negative when blocks made before
    // were freed meanwhile).
    long outstanding() const { return live(); }
    // The next `count` allocations succeed, every later one fails, until allowAll().
    void failAfter(long count) { failAfter() = count; }
    void allowAll() { failAfter() = -1; }

private:
    static std::atomic<long>& live()
    {
        static std::atomic<long> value{0};
        return value;
    }
    static std::atomic<long>& failAfter()
    {
        static std::atomic<long> value{-1};
        return value;
    }
    static bool refuse()
    {
        long left = failAfter().load();
        if (left < 0)
            return false;
        if (left == 0)
            return true;
        failAfter() = left - 1;
        return false;
    }
    static void countingFree(void* block)
    {
        if (block != nullptr)
            --live();
        std::free(block);
    }
    static void* countingMalloc(size_t size)
    {
        if (refuse())
            return nullptr;
        void* block = std::malloc(size);
        if (block != nullptr)
            ++live();
        return block;
    }
    static void* countingRealloc(void* block, size_t size)
    {
        if (refuse())
            return nullptr;
        void* grown = std::realloc(block, size);
        if (block == nullptr && grown != nullptr)
            ++live();
        return grown;
    }
    static char* countingStrdup(const char* text)
    {
        if (refuse())
            return nullptr;
        char* copy = static_cast<char*>(std::malloc(std::strlen(text) + 1));
        if (copy == nullptr)
            return nullptr;
        std::strcpy(copy, text);
        ++live();
        return copy;
    }

    xmlFreeFunc savedFree_ = nullptr;
    xmlMallocFunc savedMalloc_ = nullptr;
    xmlReallocFunc savedRealloc_ = nullptr;
    xmlStrdupFunc savedStrdup_ = nullptr;
};

} // namespace tarntest
