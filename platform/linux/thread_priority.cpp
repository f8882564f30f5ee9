#include <platform/thread_priority.h>

#include "platform/linux/io_priority.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

// The system has it the other way round: nice values, from -20 to 19, grow as the
// thread becomes less urgent. It also takes the number 0 for the calling thread.

namespace {

bool raise_input_output(thread_id thread) noexcept {
    const long value = syscall(SYS_ioprio_get, io_priority::of_one_thread, thread);
    if (value < 0)
        return errno == ENOSYS; // a kernel without these classes lowers nobody
    // The bits between class and level are hints to the device.
    const long level = value % io_priority::levels;
    const auto kind = io_priority::kind_of(value);
    const bool lowered = kind == io_priority::idle ||
                         (kind == io_priority::best_effort && level > io_priority::normal_level);
    // In a thread without a class the kernel goes by the nice value.
    return !lowered || syscall(SYS_ioprio_set, io_priority::of_one_thread, thread,
                               io_priority::value_of(io_priority::none, 0)) == 0;
}

} // namespace

std::optional<int> thread_priority(thread_id thread) noexcept {
    errno = 0; // -1 is a nice value, too
    const int nice = getpriority(PRIO_PROCESS, thread);
    if (thread == 0 || errno != 0)
        return std::nullopt;
    return -nice;
}

bool set_thread_priority(thread_id thread, int priority) noexcept {
    return thread != 0 &&
           setpriority(PRIO_PROCESS, thread, -std::clamp(priority, -PRIO_MAX, -PRIO_MIN)) == 0;
}

bool raise_to_normal_priority(thread_id thread) noexcept {
    const auto priority = thread_priority(thread);
    if (!priority)
        return false;
    const bool processor = *priority >= 0 || set_thread_priority(thread, 0);
    return raise_input_output(thread) && processor; // each is of use without the other
}

} // namespace zel::platform
