#include <platform/thread_slot.h>

#include <atomic>
#include <bit>
#include <pthread.h>

namespace zel::platform {

namespace {

constexpr std::uint32_t unknown = shared_thread_slot + 1;

// Bits of the numbers that are given out. Acquire and release: whoever gets a number sees what
// its last owner wrote.
constinit std::atomic<std::uint64_t> taken{0};
static_assert(own_thread_slots == 64);

// Initial-exec: one load, no call, and nothing to destroy.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::uint32_t mine = unknown;

// How many threads have found no number left. Relaxed: looked at in a child with one thread.
constinit std::atomic<std::uint32_t> without_number{0};
// Relaxed: written before the child has a second thread.
constinit std::atomic<bool> others_were_lost{false};

// What the thread does from now on at its end is done in the shared place.
void give_back(void*) noexcept {
    const std::uint32_t slot = mine;
    mine = shared_thread_slot;
    if (slot == shared_thread_slot)
        without_number.fetch_sub(1, std::memory_order_relaxed);
    else
        taken.fetch_and(~(std::uint64_t{1} << slot), std::memory_order_release);
}

// The numbers of threads that the child does not have stay taken: they may have been in the
// middle of something in their places.
void begin_child() noexcept {
    const auto numbers = std::popcount(taken.load(std::memory_order_relaxed));
    const auto all = std::uint32_t(numbers) + without_number.load(std::memory_order_relaxed);
    if (all > (mine == unknown ? 0U : 1U))
        others_were_lost.store(true, std::memory_order_relaxed);
}

// Tells of the end of a thread that has asked for a number, and of the beginning of a child.
// Never deleted, like this library.
bool watch_end_of_thread() noexcept {
    static const struct key_of_ends {
        pthread_key_t key{};
        bool is_made = pthread_key_create(&key, &give_back) == 0 &&
                       pthread_atfork(nullptr, nullptr, &begin_child) == 0;
    } ends;
    return ends.is_made && pthread_setspecific(ends.key, &mine) == 0;
}

[[gnu::noinline]] std::uint32_t take() noexcept {
    mine = shared_thread_slot;
    if (!watch_end_of_thread())
        return mine;
    std::uint64_t seen = taken.load(std::memory_order_relaxed);
    while (~seen != 0) {
        const auto slot = static_cast<std::uint32_t>(std::countr_one(seen));
        if (taken.compare_exchange_weak(seen, seen | std::uint64_t{1} << slot,
                                        std::memory_order_acquire, std::memory_order_relaxed))
            return mine = slot;
    }
    without_number.fetch_add(1, std::memory_order_relaxed);
    return mine;
}

} // namespace

std::uint32_t thread_slot() noexcept {
    const std::uint32_t known = mine;
    return known != unknown ? known : take();
}

bool threads_were_lost() noexcept {
    return others_were_lost.load(std::memory_order_relaxed);
}

} // namespace zel::platform
