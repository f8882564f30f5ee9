// The threads that run tasks: how many there are, and when there are more.
//
// A host that wants other limits says so, best before anything runs:
//
//     auto limits = tasklib::get_task_threads_module()->get_limits();
//     limits.cores = 4;
//     tasklib::get_task_threads_module()->set_limits(limits);
#pragma once

#include <framework/module_interface/interface.h>
#include <platform/timeout.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <thread>

namespace zel::tasklib {

struct task_thread_limits {
    /// The tasks that run at once as long as none of them blocks: 1 to `most_threads`.
    std::uint32_t cores = std::max(1u, std::thread::hardware_concurrency());
    /// The threads there are at most, also when tasks block: up to 4096.
    std::uint32_t most_threads = std::max(512u, std::thread::hardware_concurrency());
    /// Without progress, until a thread is added: 1 ms to an hour.
    platform::milliseconds stalled{50};
    /// Not needed, until a thread beyond `cores` leaves: 30 ms to a day.
    platform::milliseconds idle{30'000};
};

/// Implemented by `tasks_core`. Any thread may call any operation. All of them throw
/// exceptions::fatal when the library has ended.
class ZEL_EXPORT task_threads_module : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Holds for the whole process from now on, until it is called again or `tasks_core` is
    /// unloaded; loaded anew, that begins with the limits above. Threads that are too many by
    /// the new limits are not stopped: they leave when they have been idle. Throws
    /// exceptions::error that names the limit and its value, and changes nothing, when one
    /// is out of range.
    virtual void set_limits(const task_thread_limits& limits) = 0;
    virtual task_thread_limits get_limits() = 0;
};

/// Loads the task library on first use; this program or library gives it back when it
/// ends. Throws exceptions::error or WrongIfcVersion when it cannot be had.
std::shared_ptr<task_threads_module> get_task_threads_module();

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_threads_module> {
    static std::string text() { return "class zel::tasklib::task_threads_module"; }
};
