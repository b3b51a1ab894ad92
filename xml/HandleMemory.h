#pragma once
// Memory for the node handles that callers make and drop at a high rate: CreateXmlNode and
// Create, Clone, child lookups. Each makes one block (the handle and its shared count, through
// boost::allocate_shared) that lives only as long as the caller keeps the handle.
//
// In a process whose heap has held and freed large trees, malloc serves such a block slowly
// (it searches and splits freed chunks every time), and building a tree node by node then
// costs noticeably more than the same libxml2 calls alone. So each thread keeps the last few
// blocks it released and hands them out again: making and dropping a handle then touches no
// allocator at all.
//
// Ownership: a block released on another thread than the one that made it joins that thread's
// list; a thread keeps at most kKeptBlocks and frees the rest at once; its list is freed when
// the thread ends (after that, released blocks are freed at once). Under AddressSanitizer every
// block is made and freed on its own, so that a use after free of a handle is still caught.
#include <cstddef>
#include <new>

#include <boost/make_shared.hpp>

namespace tarn {
namespace detail {

#if defined(__SANITIZE_ADDRESS__)
#define TARN_HANDLE_BLOCKS_KEPT 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_HANDLE_BLOCKS_KEPT 0
#endif
#endif
#ifndef TARN_HANDLE_BLOCKS_KEPT
#define TARN_HANDLE_BLOCKS_KEPT 16
#endif

// The released blocks of one size on the calling thread.
template <std::size_t Size>
class BlockCache {
public:
    static void* take()
    {
        keepUntilThreadEnd();
        List& list = threadList();
        if (Free* block = list.head) {
            list.head = block->next;
            --list.count;
            return block;
        }
        return ::operator new(Size);
    }

    static void give(void* memory) noexcept
    {
        keepUntilThreadEnd();
        List& list = threadList();
        if (list.closed || list.count >= kKeptBlocks) {
            ::operator delete(memory);
            return;
        }
        Free* block = static_cast<Free*>(memory);
        block->next = list.head;
        list.head = block;
        ++list.count;
    }

private:
    static constexpr unsigned kKeptBlocks = TARN_HANDLE_BLOCKS_KEPT;

    struct Free {
        Free* next;
    };
    static_assert(Size >= sizeof(Free), "a kept block holds the link to the next one");

    // Trivially destructible, so that it can still be read while the thread ends, after the
    // closer below has run (a handle released by a later thread_local or, on the main thread,
    // by a static object's destructor).
    struct List {
        Free* head;
        unsigned count;
        bool closed;
    };

    struct Closer {
        ~Closer()
        {
            List& list = threadList();
            while (Free* block = list.head) {
                list.head = block->next;
                ::operator delete(block);
            }
            list.count = 0;
            list.closed = true;
        }
    };

    static List& threadList() noexcept
    {
        static thread_local List list{nullptr, 0, false};
        return list;
    }

    // Registers the closer of this thread's list on first use.
    static void keepUntilThreadEnd() noexcept
    {
        static thread_local Closer closer;
        (void)closer;
    }
};

// The allocator boost::allocate_shared uses for handles: single objects come from the thread's
// BlockCache for their size, arrays from operator new.
template <typename T>
struct HandleAllocator {
    using value_type = T;

    HandleAllocator() = default;
    template <typename U>
    HandleAllocator(const HandleAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t n)
    {
        if (n != 1)
            return static_cast<T*>(::operator new(n * sizeof(T)));
        return static_cast<T*>(BlockCache<sizeof(T)>::take());
    }

    void deallocate(T* memory, std::size_t n) noexcept
    {
        if (n != 1) {
            ::operator delete(memory);
            return;
        }
        BlockCache<sizeof(T)>::give(memory);
    }

    template <typename U>
    bool operator==(const HandleAllocator<U>&) const noexcept
    {
        return true;
    }
    template <typename U>
    bool operator!=(const HandleAllocator<U>&) const noexcept
    {
        return false;
    }
};

// A new empty handle (the node handle's own constructor) in one block from the thread's cache.
template <typename Handle>
boost::shared_ptr<Handle> makeHandle()
{
    return boost::allocate_shared<Handle>(HandleAllocator<Handle>());
}

} // namespace detail
} // namespace tarn
