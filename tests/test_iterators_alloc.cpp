// Stepping an iterator allocates nothing: this executable replaces the global operator new and
// libxml2's allocators with counting ones and walks large child lists, attribute lists and XPath
// results with the counters on.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"

#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

static std::atomic<bool> g_counting{false};
static std::atomic<long> g_allocations{0};
static void count() { g_allocations += g_counting ? 1 : 0; }
static void* countedAllocate(std::size_t size) { return count(), std::malloc(size == 0 ? 1 : size); }

// libxml2's allocators (by default malloc, realloc, free and its own strdup), counted the same
// way. They are installed before main and stay.
static void* countedRealloc(void* block, size_t size) { return count(), std::realloc(block, size); }
static char* countedStrdup(const char* text) { return count(), strdup(text); }
[[maybe_unused]] static const int g_installed = xmlMemSetup(std::free, countedAllocate, countedRealloc, countedStrdup);

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

// Runs `steps` with the counters on and returns how many allocations it made.
template <class Steps> long allocationsDuring(Steps steps) {
    g_allocations = 0, g_counting = true;
    steps();
    return g_counting = false, g_allocations.load();
}

// Walks from `first` (fetched before counting) with `next` to the end, then once more from a
// counted call of `first`: neither walk may allocate.
template <class First, class Next> void expectFreeSteps(First first, Next next, int expected) {
    auto item = first();
    int steps = 0;
    EXPECT_EQ(allocationsDuring([&] {
        for (; item; item = next()) ++steps;
        for (item = first(); item; item = next()) ++steps;
    }), 0);
    EXPECT_EQ(steps, 2 * expected);
}

TEST(IteratorAllocations, SteppingAllocatesNothing) {
    const int kChildren = 10000, kAttributes = 1000;
    std::string attributes, children;
    for (int i = 0; i < kChildren; ++i) {
        children += "  <c n=\"" + std::to_string(i) + "\"/>\n  <!-- between -->\n";
        attributes += i < kAttributes ? " a" + std::to_string(i) + "=\"v\"" : "";
    }
    const tarn::XmlDocumentPtr records = tarn::CreateXmlDocument("<r" + attributes + ">\n" + children + "</r>");
    const tarn::XmlNodePtr root = records->GetRoot();
    // The counters see both kinds: a query allocates through libxml2, a new handle through
    // operator new (unless valgrind has replaced it with its own).
    EXPECT_GT(allocationsDuring([&] { ASSERT_NE(records->GetIterator("//c"), nullptr); }), 0);
    EXPECT_GT(allocationsDuring([&] { root->GetChild(); }) + RUNNING_ON_VALGRIND, 0);

    // The child and attribute iterators are asked for again at every step. The second expression
    // also lists text and comment nodes, which are skipped.
    expectFreeSteps([&] { return root->GetIterator()->GetFirst(); }, [&] { return records->GetIterator()->GetNext(); }, kChildren);
    expectFreeSteps([&] { return root->GetAttributeIterator()->GetFirst(); },
                    [&] { return root->GetAttributeIterator()->GetNext(); }, kAttributes);
    for (const char* xpath : {"//c", "/r/node()"})
        for (tarn::XPathNodeIterator* iterator : {records->GetIterator(xpath), root->GetIterator(xpath)}) {
            SCOPED_TRACE(xpath);
            ASSERT_NE(iterator, nullptr);
            expectFreeSteps([&] { return iterator->GetFirst(); }, [&] { return iterator->GetNext(); }, kChildren);
        }
}

// Handles that are made and dropped take the memory the thread released before: once a thread has
// dropped handles, making as many again (new nodes, child lookups) allocates nothing. Sanitizer
// builds keep no released memory, so that a use after free stays visible; there each allocates.
TEST(HandleAllocations, DroppedHandlesAreReusedByTheThread) {
#if defined(__SANITIZE_ADDRESS__)
    constexpr bool kKept = false;
#else
    constexpr bool kKept = true;
#endif
    const tarn::XmlDocumentPtr document = tarn::CreateXmlDocument("<r><c>1</c><d>2</d></r>");
    const tarn::XmlNodePtr root = document->GetRoot();
    const auto makeThree = [&] {
        tarn::XmlNodePtr made = tarn::CreateXmlNode(), c = root->GetChild("c"), first = root->GetChild();
        EXPECT_TRUE(made && !made->getlibXML2Node() && c->GetData() == "1" && first->GetName() == "c");
    };
    makeThree();
    EXPECT_EQ(allocationsDuring([&] { for (int i = 0; i < 1000; ++i) makeThree(); }),
              kKept || RUNNING_ON_VALGRIND ? 0 : 3000);
}

} // namespace
