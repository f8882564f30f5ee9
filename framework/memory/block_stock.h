// Memory for kinds of objects that one thread makes and another one releases, all the time.
//
// A general allocator gives each thread a region of its own. When another thread releases
// a block, it takes the lock of the region that the block is from, so the two threads
// put each other to sleep. Here each thread keeps a few free blocks, which it takes and gives
// back without atomic operations, and threads exchange them by the bundle.
//
//     std::allocate_shared<message>(memory::recycling_allocator<message>(), ...)
#pragma once

#include <platform/critical_section.h>
#include <platform/thread_slot.h>

#include <array>
#include <cstddef>
#include <new>

namespace zel::memory {

/// Free blocks of one size. Any thread; what it keeps is bounded: two bundles a slot, and those
/// in exchange.
class block_stock {
public:
    constexpr block_stock() noexcept = default;
    block_stock(const block_stock&) = delete;
    block_stock& operator=(const block_stock&) = delete;

    /// Null where none is in stock.
    void* take() noexcept;
    /// False where the stock does not keep it; it is the caller's then.
    bool give_back(void* memory) noexcept;
    /// Gives the blocks in stock back to the general allocator. Nobody takes one or gives one
    /// back meanwhile.
    void release_all() noexcept;

private:
    struct block {
        block* next;
        block* next_bundle; // of the first block of a bundle
    };
    static constexpr std::size_t bundle_size = 32;
    static constexpr std::size_t most_bundles = 64; // in exchange: 2 MB of the largest blocks

    // Where a thread keeps its blocks. The last place is shared by the threads that have no
    // slot of their own.
    struct alignas(64) place {
        platform::plain_lock
            guard; // of the shared place, held for a few steps; the others need none
        block* open = nullptr;
        std::size_t open_count = 0; // at most a bundle
        block* full = nullptr;      // a bundle or none
    };

    template <class Use>
    void with_own_place(const Use& use) noexcept;
    static void release(block* first) noexcept;
    block* obtain_bundle() noexcept;
    /// Returns the bundle if there is no room for it, else null.
    [[nodiscard]] block* exchange_bundle(block* bundle) noexcept;

    std::array<place, platform::own_thread_slots + 1> places_;
    // Guards what follows; taken inside of the shared place's guard.
    platform::plain_lock exchange_guard_;
    block* bundles_ ZEL_GUARDED_BY(exchange_guard_) = nullptr;
    std::size_t bundle_count_ ZEL_GUARDED_BY(exchange_guard_) = 0;
};

/// From the stock of this library for blocks of that size; from the general allocator where
/// they are large, or where the library's last end-of-life action has closed the stocks. Throws
/// std::bad_alloc.
void* take_block(std::size_t size);
/// The size is the one that was asked for.
void give_block_back(void* memory, std::size_t size) noexcept;

template <class T>
class recycling_allocator {
public:
    using value_type = T;

    recycling_allocator() noexcept = default;
    template <class Other>
    recycling_allocator(const recycling_allocator<Other>&) noexcept {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        return static_cast<T*>(take_block(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t count) noexcept {
        give_block_back(memory, count * sizeof(T));
    }

    friend bool operator==(const recycling_allocator&, const recycling_allocator&) = default;
};

} // namespace zel::memory
