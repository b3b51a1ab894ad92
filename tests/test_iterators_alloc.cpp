// Stepping an iterator allocates nothing: this executable replaces the global operator new and
// libxml2's allocators with counting ones and walks large child lists, attribute lists and XPath
// results with the counters on.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void count()
{
    if (g_counting.load(std::memory_order_relaxed))
        g_allocations.fetch_add(1, std::memory_order_relaxed);
}

void* countedAllocate(std::size_t size)
{
    count();
    return std::malloc(size == 0 ? 1 : size);
}

void countedRelease(void* block) noexcept { std::free(block); }

} // namespace

// The replacements stay out of line: inlined into this file's code they would pair a free with an
// allocation made elsewhere, which tools that track allocation kinds (valgrind) report.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (void* block = countedAllocate(size))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size)
{
    if (void* block = countedAllocate(size))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
[[gnu::noinline]] void operator delete(void* block) noexcept { countedRelease(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { countedRelease(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { countedRelease(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { countedRelease(block); }
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept { countedRelease(block); }
[[gnu::noinline]] void operator delete[](void* block, const std::nothrow_t&) noexcept { countedRelease(block); }

namespace {

using tarn::XmlDocumentPtr;
using tarn::XmlNodePtr;

// libxml2's own allocators, counted the same way.
xmlFreeFunc g_xmlFree = nullptr;
xmlMallocFunc g_xmlMalloc = nullptr;
xmlReallocFunc g_xmlRealloc = nullptr;
xmlStrdupFunc g_xmlStrdup = nullptr;

void* countedXmlMalloc(size_t size) { return count(), g_xmlMalloc(size); }
void* countedXmlRealloc(void* block, size_t size) { return count(), g_xmlRealloc(block, size); }
char* countedXmlStrdup(const char* text) { return count(), g_xmlStrdup(text); }

class IteratorAllocations : public ::testing::Test {
protected:
    void SetUp() override
    {
        xmlMemGet(&g_xmlFree, &g_xmlMalloc, &g_xmlRealloc, &g_xmlStrdup);
        xmlMemSetup(g_xmlFree, countedXmlMalloc, countedXmlRealloc, countedXmlStrdup);
    }
    void TearDown() override { xmlMemSetup(g_xmlFree, g_xmlMalloc, g_xmlRealloc, g_xmlStrdup); }

    // Runs `steps` with the counters on and returns how many allocations it made.
    static long allocationsDuring(const std::function<void()>& steps)
    {
        g_allocations = 0;
        g_counting = true;
        steps();
        g_counting = false;
        return g_allocations.load();
    }
};

TEST_F(IteratorAllocations, SteppingAllocatesNothing)
{
    const int kChildren = 10000;
    const int kAttributes = 1000;

    std::string text = "<r>\n";
    for (int i = 0; i < kChildren; ++i)
        text += "  <c n=\"" + std::to_string(i) + "\"/>\n  <!-- between -->\n";
    const XmlDocumentPtr records = tarn::CreateXmlDocument(text + "</r>");
    ASSERT_TRUE(records);
    const XmlNodePtr root = records->GetRoot();

    text = "<e";
    for (int i = 0; i < kAttributes; ++i)
        text += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    const XmlDocumentPtr wide = tarn::CreateXmlDocument(text + "/>");
    ASSERT_TRUE(wide);
    const XmlNodePtr element = wide->GetRoot();

    {
        SCOPED_TRACE("child iterator, asked for again at every step");
        XmlNodePtr node = root->GetIterator()->GetFirst();
        int steps = 0;
        EXPECT_EQ(allocationsDuring([&] {
            for (; node; node = records->GetIterator()->GetNext())
                ++steps;
        }), 0);
        EXPECT_EQ(steps, kChildren);
    }
    {
        SCOPED_TRACE("attribute iterator, asked for again at every step");
        tarn::XmlAttributePtr attribute = element->GetAttributeIterator()->GetFirst();
        int steps = 0;
        EXPECT_EQ(allocationsDuring([&] {
            for (; attribute; attribute = element->GetAttributeIterator()->GetNext())
                ++steps;
        }), 0);
        EXPECT_EQ(steps, kAttributes);
    }
    // The second expression also lists text and comment nodes, which are skipped.
    for (const char* xpath : {"//c", "/r/node()"}) {
        SCOPED_TRACE(xpath);
        for (tarn::XPathNodeIterator* iterator : {records->GetIterator(xpath), root->GetIterator(xpath)}) {
            ASSERT_NE(iterator, nullptr);
            XmlNodePtr node = iterator->GetFirst();
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

TEST_F(IteratorAllocations, CountersSeeAllocations)
{
    const XmlDocumentPtr document = tarn::CreateXmlDocument("<r><c/></r>");
    ASSERT_TRUE(document);
    const XmlNodePtr handle = tarn::CreateXmlNode();
    handle->Initialize(document->GetRoot()->getlibXML2Node());
    // A query allocates through libxml2; a first request through operator new, which valgrind
    // replaces with its own (the operator new count then stays at zero).
    ASSERT_NE(document->GetIterator("//c"), nullptr);
    EXPECT_GT(allocationsDuring([&] { document->GetIterator("//c"); }), 0);
    if (RUNNING_ON_VALGRIND)
        GTEST_SKIP() << "operator new is valgrind's";
    EXPECT_GT(allocationsDuring([&] { handle->GetIterator(); }), 0);
}

} // namespace
