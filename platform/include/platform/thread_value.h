// One pointer per thread, for a library that may go before the threads do.
//
// A `thread_local` with a destructor pins its library in memory until the last thread that
// used it has ended. Here the platform layer, which stays, watches the ends of threads and
// tells the owner as long as that is there:
//
//     thread_value records(&forget_record, this);
//     if (!records.get())
//         records.set(new record);
//
// Any thread may call any operation; a value is seen by the thread that set it alone.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

class ZEL_EXPORT thread_value {
public:
    /// Called on a thread that ends, with what it has set. Must be short, and must not
    /// make, set or destroy thread values.
    using end_function = void (*)(void* owner, void* value) noexcept;

    thread_value(end_function at_thread_end, void* owner) noexcept;
    /// Waits for the function where it runs; it is not called any more afterwards. What
    /// is set in the threads is forgotten.
    ~thread_value();
    thread_value(const thread_value&) = delete;
    thread_value& operator=(const thread_value&) = delete;

    /// What this thread has set, or null.
    void* get() const noexcept;

    /// Not null. Throws std::bad_alloc, and sets nothing. A thread that sets a value while it
    /// ends is told of later, as long as the system goes on with its ends.
    void set(void* value);

private:
    struct registry;

    const end_function at_thread_end_;
    void* const owner_;
    const std::uint64_t number_; // never used again, unlike addresses
    thread_value* next_ = nullptr;
};

} // namespace zel::platform
