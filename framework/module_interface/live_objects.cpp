#include "framework/module_interface/live_objects.h"

#include <platform/process.h>

#include <atomic>
#include <bit>

namespace zel::mi {

namespace live_objects {

namespace {

// One word, so that nobody sees a module counted without its object. Sequentially
// consistent: counts are compared across threads at the end of a library's life.
constinit std::atomic<std::uint64_t> packed{0};

counts change(std::int32_t modules, std::int32_t objects) noexcept {
    std::uint64_t before = packed.load();
    counts now{};
    do {
        now = std::bit_cast<counts>(before);
        now.modules += modules;
        now.objects += objects;
    } while (!packed.compare_exchange_weak(before, std::bit_cast<std::uint64_t>(now)));
    return now;
}

} // namespace

counts current() noexcept {
    return std::bit_cast<counts>(packed.load());
}

void add_object() noexcept {
    change(0, 1);
}

void remove_object() noexcept {
    change(0, -1);
}

void add_module() noexcept {
    change(1, 0);
}

void remove_module() noexcept {
    constexpr int most_pauses = 10;
    if (change(-1, 0).modules != 0)
        return;
    for (int pause = 0; pause < most_pauses && current().objects > 1; ++pause)
        platform::sleep_for(platform::milliseconds(1));
}

} // namespace live_objects

const void* implementation_address() noexcept {
    return reinterpret_cast<const void*>(&implementation_address);
}

} // namespace zel::mi
