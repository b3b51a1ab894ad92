// Stepping an iterator allocates nothing: this executable replaces the global operator new and
// libxml2's allocators with counting ones and walks large child lists, attribute lists and XPath
// results with the counters on.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"

#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <atomic>
#include <cstdlib>
#include <new>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};
void count() { g_allocations += g_counting ? 1 : 0; }
void* countedAllocate(std::size_t size) { return count(), std::malloc(size == 0 ? 1 : size); }

// libxml2's own allocators, counted the same way. They are installed before main and stay.
xmlFreeFunc g_xmlFree = nullptr;
xmlMallocFunc g_xmlMalloc = nullptr;
xmlReallocFunc g_xmlRealloc = nullptr;
xmlStrdupFunc g_xmlStrdup = nullptr;
void* countedXmlMalloc(size_t size) { return count(), g_xmlMalloc(size); }
void* countedXmlRealloc(void* block, size_t size) { return count(), g_xmlRealloc(block, size); }
char* countedXmlStrdup(const char* text) { return count(), g_xmlStrdup(text); }
[[maybe_unused]] const int g_installed = xmlMemGet(&g_xmlFree, &g_xmlMalloc, &g_xmlRealloc, &g_xmlStrdup) +
                                         xmlMemSetup(g_xmlFree, countedXmlMalloc, countedXmlRealloc, countedXmlStrdup);

} // namespace

// The replacements stay out of line: inlined into this file's code they would pair a free with an
// allocation made elsewhere, which tools that track allocation kinds (valgrind) report.
// clang-format off
[[gnu::noinline]] void* operator new(std::size_t size) { if (void* block = countedAllocate(size)) return block; throw std::bad_alloc(); }
[[gnu::noinline]] void* operator new[](std::size_t size) { if (void* block = countedAllocate(size)) return block; throw std::bad_alloc(); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
// clang-format on

namespace {

using namespace tarn;

// Runs `steps` with the counters on and returns how many allocations it made.
template <class Steps> long allocationsDuring(Steps steps) {
    g_allocations = 0;
    g_counting = true;
    steps();
    g_counting = false;
    return g_allocations;
}

TEST(IteratorAllocations, SteppingAllocatesNothing) {
    const int kChildren = 10000, kAttributes = 1000;
    std::string text = "<r>\n", wideText = "<e";
    for (int i = 0; i < kChildren; ++i)
        text += "  <c n=\"" + std::to_string(i) + "\"/>\n  <!-- between -->\n";
    for (int i = 0; i < kAttributes; ++i)
        wideText += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    const XmlDocumentPtr records = CreateXmlDocument(text + "</r>"), wide = CreateXmlDocument(wideText + "/>");
    ASSERT_TRUE(records && wide);
    const XmlNodePtr root = records->GetRoot(), element = wide->GetRoot(), handle = CreateXmlNode();

    // The counters see both kinds: a query allocates through libxml2, a first request through
    // operator new (unless valgrind has replaced it with its own).
    ASSERT_NE(records->GetIterator("//c"), nullptr);
    EXPECT_GT(allocationsDuring([&] { records->GetIterator("//c"); }), 0);
    handle->Initialize(root->getlibXML2Node());
    EXPECT_GT(allocationsDuring([&] { handle->GetIterator(); }) + RUNNING_ON_VALGRIND, 0);

    // The child and attribute iterators are asked for again at every step.
    XmlNodePtr node = root->GetIterator()->GetFirst();
    XmlAttributePtr attribute = element->GetAttributeIterator()->GetFirst();
    int children = 0, attributes = 0;
    EXPECT_EQ(allocationsDuring([&] {
        for (; node; node = records->GetIterator()->GetNext())
            ++children;
        for (; attribute; attribute = element->GetAttributeIterator()->GetNext())
            ++attributes;
    }), 0);
    EXPECT_EQ(std::make_pair(children, attributes), std::make_pair(kChildren, kAttributes));

    // The second expression also lists text and comment nodes, which are skipped.
    for (const char* xpath : {"//c", "/r/node()"}) {
        for (XPathNodeIterator* iterator : {records->GetIterator(xpath), root->GetIterator(xpath)}) {
            SCOPED_TRACE(xpath);
            ASSERT_NE(iterator, nullptr);
            node = iterator->GetFirst();
            int steps = 0;
            EXPECT_EQ(allocationsDuring([&] {
                for (; node; node = iterator->GetNext())
                    ++steps;
                for (node = iterator->GetFirst(); node; node = iterator->GetNext())
                    ++steps;
            }), 0);
            EXPECT_EQ(steps, 2 * kChildren);
        }
    }
}

} // namespace
