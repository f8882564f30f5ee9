#include "framework/module_interface/live_objects.h"

#include "framework/module_interface/interface.h"

#include <platform/process.h>
#include <platform/thread_slot.h>

#include <array>
#include <atomic>

namespace zel::mi {

namespace live_objects {

namespace {

// Each thread counts in a place of its own, which takes no atomic operation that others hear
// of; the last place is shared by the threads that have none.
struct alignas(64) place {
    // Release and acquire: who counts a release has counted the making.
    std::atomic<std::uint64_t> made{0};
    std::atomic<std::uint64_t> released{0};
};

constinit std::array<place, platform::own_thread_slots + 1> places;
// Sequentially consistent: compared across threads at the end of a library's life.
constinit std::atomic<std::int32_t> modules{0};

void count(std::atomic<std::uint64_t> place::*which) noexcept {
    const auto slot = platform::thread_slot();
    auto& number = places[slot].*which;
    if (slot != platform::shared_thread_slot)
        number.store(number.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    else
        number.fetch_add(1, std::memory_order_release);
}

} // namespace

// Releases before makings: an object that is alive all the time is never missed,
// however many others come and go meanwhile.
counts current() noexcept {
    std::uint64_t released = 0;
    std::uint64_t made = 0;
    for (const place& p : places)
        released += p.released.load(std::memory_order_acquire);
    for (const place& p : places)
        made += p.made.load(std::memory_order_acquire);
    return {modules.load(), static_cast<std::int32_t>(made - released)};
}

void add_object() noexcept {
    count(&place::made);
}

void remove_object() noexcept {
    count(&place::released);
}

void add_module() noexcept {
    ++modules;
}

void remove_module() noexcept {
    constexpr int most_pauses = 10;
    if (--modules != 0)
        return;
    for (int pause = 0; pause < most_pauses && current().objects > 1; ++pause)
        platform::sleep_for(platform::milliseconds(1));
}

} // namespace live_objects

const LibraryDescriptor& own_library_descriptor() noexcept {
    static const LibraryDescriptor descriptor;
    return descriptor;
}

const void* implementation_address() noexcept {
    return reinterpret_cast<const void*>(&implementation_address);
}

} // namespace zel::mi
