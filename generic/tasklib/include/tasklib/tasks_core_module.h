// The task library: threads, a scheduler, cancellation. Implemented by `tasks_core`.
#pragma once

#include <tasklib/ended_state.h>
#include <tasklib/fwd.h>
#include <tasklib/interface_id.h>
#include <tasklib/log_exception_function.h>

#include <framework/module_interface/interface.h>

#include <cstddef>
#include <memory>

namespace zel::tasklib {

/// When the library ends, queued and delayed tasks are canceled and running ones
/// waited for; from then on the operations that need its threads throw
/// exceptions::fatal.
class ZEL_EXPORT tasks_core_module : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 6;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual std::shared_ptr<ended_state_ifc> create_ended_state() = 0;
    virtual std::shared_ptr<task_processor_ifc> get_task_processor() = 0;

    /// The calling thread's cancellation object, which stands for the innermost
    /// task it is inside of; null outside of tasks.
    virtual std::shared_ptr<cancellation_ifc> get_this_taskcancellation() = 0;
    /// The place where a host installs its function for failed tasks, for the whole process.
    virtual LogExceptionFunctionData& log_exception_function() = 0;

    virtual std::shared_ptr<task_scheduler_ifc> get_task_scheduler() = 0;
};

/// What the module may offer besides, for the making of tasks: found by a dynamic_cast to
/// versioned_ifc and its query. Lives as long as the library is loaded, also when the module has
/// ended. Any thread may call any operation.
class ZEL_EXPORT task_making_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"B1F5AC2E-6A53-4DB5-93B1-0E1B7C5E0F4D"};

    /// An ended state that needs no memory of its own: its ended_state_ifc stands at the
    /// beginning of the memory, which is aligned for pointers. The caller destroys it, and keeps
    /// the library in use until then. Null where the room is too small, and when the module has
    /// ended.
    virtual ended_state_ifc* make_ended_state_in(void* memory, std::size_t room) noexcept = 0;

    /// As that of the module.
    virtual std::shared_ptr<cancellation_ifc> get_this_taskcancellation() = 0;

    /// `submit` of the module's processor, without flags. False when nobody has asked for that
    /// so far, and when it has ended.
    virtual bool submit(const std::shared_ptr<task_ifc>& task) = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::tasks_core_module> {
    static std::string text() { return "class zel::tasklib::tasks_core_module"; }
};
