// Memory for kinds of objects that one thread makes and another one releases, all the time.
//
// A general allocator gives each thread a region of its own. When another thread releases
// a block, it takes the lock of the region that the block is from, so the two threads
// put each other to sleep. Here each thread keeps a few free blocks, and threads exchange
// them by the bundle.
//
//     std::allocate_shared<message>(memory::recycling_allocator<message>(), ...)
#pragma once

#include <platform/critical_section.h>

#include <array>
#include <cstddef>
#include <new>

namespace zel::memory {

/// Free blocks of one size. Any thread; what it keeps is bounded.
class block_stock {
public:
    constexpr block_stock() noexcept = default;
    block_stock(const block_stock&) = delete;
    block_stock& operator=(const block_stock&) = delete;

    /// Throws std::bad_alloc.
    void* take(std::size_t size);
    void give_back(void* memory) noexcept;
    /// Gives the blocks in stock back to the general allocator; those that come back from
    /// now on follow at once.
    void close() noexcept;

private:
    struct block {
        block* next;
        block* next_bundle; // of the first block of a bundle
    };
    static constexpr std::size_t bundle_size = 32;
    static constexpr std::size_t most_bundles = 64; // in exchange: 2 MB of the largest blocks

    // Where a thread keeps its blocks. Its number chooses the place, so some threads share
    // one, which costs nothing but time.
    struct alignas(64) place {
        platform::plain_lock guard; // held for a few steps
        block* open ZEL_GUARDED_BY(guard) = nullptr;
        std::size_t open_count ZEL_GUARDED_BY(guard) = 0; // at most a bundle
        block* full ZEL_GUARDED_BY(guard) = nullptr;      // a bundle or none
        bool closed ZEL_GUARDED_BY(guard) = false;
    };

    static void release(block* first) noexcept;
    place& own_place() noexcept;
    block* obtain_bundle() noexcept;
    /// Returns the bundle if there is no room for it, else null.
    [[nodiscard]] block* exchange_bundle(block* bundle) noexcept;

    std::array<place, 8> places_;
    // Guards what follows; taken inside of a place's guard.
    platform::plain_lock exchange_guard_;
    block* bundles_ ZEL_GUARDED_BY(exchange_guard_) = nullptr;
    std::size_t bundle_count_ ZEL_GUARDED_BY(exchange_guard_) = 0;
    bool closed_ ZEL_GUARDED_BY(exchange_guard_) = false;
};

/// The stock of this library for blocks of a size; null for large ones. Closed by
/// the library's last end-of-life action.
block_stock* stock_for(std::size_t size) noexcept;
/// How many bytes a block for that size really has.
std::size_t stocked_size(std::size_t size) noexcept;

template <class T>
class recycling_allocator {
public:
    using value_type = T;

    recycling_allocator() noexcept = default;
    template <class Other>
    recycling_allocator(const recycling_allocator<Other>&) noexcept {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        auto* const stock = stock_for(count * sizeof(T));
        return static_cast<T*>(stock ? stock->take(stocked_size(count * sizeof(T)))
                                     : ::operator new(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t count) noexcept {
        if (auto* const stock = stock_for(count * sizeof(T)))
            stock->give_back(memory);
        else
            ::operator delete(memory);
    }

    friend bool operator==(const recycling_allocator&, const recycling_allocator&) = default;
};

} // namespace zel::memory
