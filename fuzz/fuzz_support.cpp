#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sanitizer/allocator_interface.h>

namespace zel::fuzz {

namespace {

// Plain thread-local numbers: the hooks run inside of malloc and may not allocate.
thread_local bool is_measuring = false;
thread_local std::ptrdiff_t bytes_in_use = 0;
thread_local std::ptrdiff_t most_bytes_in_use = 0;

void count_allocation(const volatile void*, std::size_t size) {
    if (!is_measuring)
        return;
    bytes_in_use += static_cast<std::ptrdiff_t>(size);
    most_bytes_in_use = std::max(most_bytes_in_use, bytes_in_use);
}

void count_release(const volatile void* memory) {
    if (is_measuring && memory)
        bytes_in_use -= static_cast<std::ptrdiff_t>(
            __sanitizer_get_allocated_size(const_cast<const void*>(memory)));
}

const bool are_hooks_installed =
    __sanitizer_install_malloc_and_free_hooks(&count_allocation, &count_release) != 0;

} // namespace

void require(bool holds, const char* promise) {
    if (holds)
        return;
    std::fprintf(stderr, "fuzz: broken promise: %s\n", promise);
    std::abort();
}

memory_meter::memory_meter() noexcept {
    require(are_hooks_installed, "the sanitizer tells of allocations");
    bytes_in_use = 0;
    most_bytes_in_use = 0;
    is_measuring = true;
}

memory_meter::~memory_meter() {
    is_measuring = false;
}

std::size_t memory_meter::peak() const noexcept {
    return static_cast<std::size_t>(most_bytes_in_use);
}

} // namespace zel::fuzz
