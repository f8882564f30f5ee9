// Whether a task has ended, for those who wait for it.
#pragma once

#include <framework/module_interface/interface.h>
#include <framework/threading/universal_timeout.h>
#include <platform/thread_id.h>

namespace zel::tasklib {

/// Whoever holds it may keep the whole task with that, and can still ask for the end when the
/// run is over. Any thread may call any operation.
class ZEL_EXPORT ended_state_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual void set_ended() = 0;
    virtual bool is_ended() const = 0;
    /// False when the time is over first. If the caller is a thread of the task library,
    /// another thread runs tasks in its place meanwhile.
    virtual bool wait_ended(threading::universal_timeout timeout) = 0;
    /// The thread that runs the task, or `platform::no_thread`.
    virtual platform::thread_id running_thread() const = 0;
    /// Called by the task itself.
    virtual void set_running_thread(platform::thread_id thread) = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::ended_state_ifc> {
    static std::string text() { return "class zel::tasklib::ended_state_ifc"; }
};
