// Keeping track of all tasks that were made for one owner.
//
// A task enters its container when it is made and leaves it when its run ends. The
// owner ends the container, which cancels what has not started, and waits until
// all the rest has ended.
#pragma once

#include <tasklib/fwd.h>

#include <framework/module_interface/interface.h>
#include <framework/threading/universal_timeout.h>

#include <memory>

namespace zel::tasklib {

/// The container as its tasks see it. Lives as long as a task refers to it. Any
/// thread may call any operation.
class ZEL_EXPORT task_container_low_level_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 2;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// After `end` the task is canceled at once.
    virtual void add(const std::shared_ptr<task_ifc>& task) = 0;
    virtual void remove(const std::shared_ptr<task_ifc>& task) = 0;
    /// Cancels all tasks, those that are added later too.
    virtual void end() = 0;

    static constexpr std::int32_t report_timeout = 1;
    /// True once all tasks have ended, false when the time is over first. Tasks
    /// that the calling thread is inside of are not waited for. With the mode
    /// `report_timeout` the diagnostic observers are told what was waited for.
    virtual bool wait(threading::universal_timeout timeout, std::int32_t mode) = 0;
};

/// The container as its owner holds it; its destruction ends it and waits.
class ZEL_EXPORT task_container_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 2;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual std::shared_ptr<task_container_low_level_ifc> get_low_level_container() = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_container_low_level_ifc> {
    static std::string text() { return "class zel::tasklib::task_container_low_level_ifc"; }
};

template <>
struct zel::declared_type_name<zel::tasklib::task_container_ifc> {
    static std::string text() { return "class zel::tasklib::task_container_ifc"; }
};
