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

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void* countedAllocate(std::size_t size)
{
    if (g_counting.load(std::memory_order_relaxed))
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}

// Out of line, so that the compiler does not pair the free with the operator new at a call site.
[[gnu::noinline]] void countedRelease(void* block) noexcept { std::free(block); }

} // namespace

void* operator new(std::size_t size)
{
    if (void* block = countedAllocate(size))
        return block;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    if (void* block = countedAllocate(size))
        return block;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAllocate(size); }
void operator delete(void* block) noexcept { countedRelease(block); }
void operator delete[](void* block) noexcept { countedRelease(block); }
void operator delete(void* block, std::size_t) noexcept { countedRelease(block); }
void operator delete[](void* block, std::size_t) noexcept { countedRelease(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { countedRelease(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { countedRelease(block); }

namespace {

using tarn::XmlDocumentPtr;
using tarn::XmlNodePtr;

// libxml2's allocators, counted the same way while this guard lives.
class CountLibxml2Allocations {
public:
    CountLibxml2Allocations()
    {
        xmlMemGet(&free_, &malloc_, &realloc_, &strdup_);
        saved() = {free_, malloc_, realloc_, strdup_};
        xmlMemSetup(free_, countedMalloc, countedRealloc, countedStrdup);
    }
    ~CountLibxml2Allocations() { xmlMemSetup(free_, malloc_, realloc_, strdup_); }
    CountLibxml2Allocations(const CountLibxml2Allocations&) = delete;
    CountLibxml2Allocations& operator=(const CountLibxml2Allocations&) = delete;

private:
    struct Saved {
        xmlFreeFunc free;
        xmlMallocFunc malloc;
        xmlReallocFunc realloc;
        xmlStrdupFunc strdup;
    };
    static Saved& saved()
    {
        static Saved functions{};
        return functions;
    }
    static void count()
    {
        if (g_counting.load(std::memory_order_relaxed))
            g_allocations.fetch_add(1, std::memory_order_relaxed);
    }
    static void* countedMalloc(size_t size)
    {
        count();
        return saved().malloc(size);
    }
    static void* countedRealloc(void* block, size_t size)
    {
        count();
        return saved().realloc(block, size);
    }
    static char* countedStrdup(const char* text)
    {
        count();
        return saved().strdup(text);
    }

    xmlFreeFunc free_ = nullptr;
    xmlMallocFunc malloc_ = nullptr;
    xmlReallocFunc realloc_ = nullptr;
    xmlStrdupFunc strdup_ = nullptr;
};

// Runs `steps` with the counters on and returns how many allocations it made.
long allocationsDuring(const std::function<void()>& steps)
{
    g_allocations = 0;
    g_counting = true;
    steps();
    g_counting = false;
    return g_allocations.load();
}

std::string recordsDocument(int children)
{
    std::string text = "<r>\n";
    for (int i = 0; i < children; ++i)
        text += "  <c n=\"" + std::to_string(i) + "\"/>\n  <!-- between -->\n";
    return text + "</r>";
}

TEST(IteratorAllocations, SteppingAllocatesNothing)
{
    const CountLibxml2Allocations libxml2Counting;
    const int kChildren = 10000;
    const int kAttributes = 1000;

    const XmlDocumentPtr records = tarn::CreateXmlDocument(recordsDocument(kChildren));
    ASSERT_TRUE(records);
    const XmlNodePtr root = records->GetRoot();

    std::string wide = "<e";
    for (int i = 0; i < kAttributes; ++i)
        wide += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    wide += "/>";
    const XmlDocumentPtr attributes = tarn::CreateXmlDocument(wide);
    ASSERT_TRUE(attributes);
    const XmlNodePtr element = attributes->GetRoot();

    {
        SCOPED_TRACE("child iterator, asked for again at every step");
        XmlNodePtr node = root->GetIterator()->GetFirst();
        int steps = 0;
        const long allocations = allocationsDuring([&] {
            for (; node; node = root->GetIterator()->GetNext())
                ++steps;
        });
        EXPECT_EQ(steps, kChildren);
        EXPECT_EQ(allocations, 0);
    }
    {
        SCOPED_TRACE("document child iterator, rewound");
        tarn::XmlNodeIterator* iterator = records->GetIterator();
        ASSERT_NE(iterator, nullptr);
        XmlNodePtr node = iterator->GetFirst();
        int steps = 0;
        const long allocations = allocationsDuring([&] {
            for (node = records->GetIterator()->GetFirst(); node; node = iterator->GetNext())
                ++steps;
        });
        EXPECT_EQ(steps, kChildren);
        EXPECT_EQ(allocations, 0);
    }
    {
        SCOPED_TRACE("attribute iterator");
        tarn::XmlAttributePtr attribute = element->GetAttributeIterator()->GetFirst();
        int steps = 0;
        const long allocations = allocationsDuring([&] {
            for (; attribute; attribute = element->GetAttributeIterator()->GetNext())
                ++steps;
        });
        EXPECT_EQ(steps, kAttributes);
        EXPECT_EQ(allocations, 0);
    }
    for (const char* xpath : {"//c", "/r/node()"}) {
        SCOPED_TRACE(xpath);
        for (int owner = 0; owner < 2; ++owner) {
            tarn::XPathNodeIterator* iterator = owner == 0 ? records->GetIterator(xpath) : root->GetIterator(xpath);
            ASSERT_NE(iterator, nullptr);
            XmlNodePtr node = iterator->GetFirst();
            int steps = 0;
            const long allocations = allocationsDuring([&] {
                for (; node; node = iterator->GetNext())
                    ++steps;
                // Rewinding and walking again allocates nothing either.
                for (node = iterator->GetFirst(); node; node = iterator->GetNext())
                    ++steps;
            });
            EXPECT_EQ(steps, 2 * kChildren);
            EXPECT_EQ(allocations, 0);
        }
    }
}

TEST(IteratorAllocations, CountersSeeAllocations)
{
    // The counters themselves work: a first request and a query do allocate.
    const CountLibxml2Allocations libxml2Counting;
    const XmlDocumentPtr document = tarn::CreateXmlDocument("<r><c/></r>");
    ASSERT_TRUE(document);
    const XmlNodePtr handle = tarn::CreateXmlNode();
    handle->Initialize(document->GetRoot()->getlibXML2Node());
    EXPECT_GT(allocationsDuring([&] { handle->GetIterator(); }), 0);
    EXPECT_GT(allocationsDuring([&] { document->GetIterator("//c"); }), 0);
}

} // namespace
