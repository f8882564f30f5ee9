// A task, as it looks to code that holds, queues or runs it.
//
// A task is made, handed to one place that will run it, claimed by whoever starts
// or cancels it first, run once, and ended. It is a shared object and keeps itself
// while it runs. Any thread may call any operation.
#pragma once

#include <tasklib/cancellation.h>
#include <tasklib/fwd.h>
#include <tasklib/run_statistics.h>

#include <framework/module_interface/interface.h>

#include <cstddef>
#include <memory>
#include <string>

namespace zel::tasklib {

/// A place that a task was handed to and can be taken back from.
class ZEL_EXPORT task_submitter_ifc : public InterfaceBase {
public:
    /// Forgets the task, if it is still there, and everything it holds.
    virtual void withdraw(task_ifc& task) = 0;
};

/// Thrown when a task is handed to a second place while the first one still has it.
class ZEL_EXPORT task_is_already_submitted : public exceptions::error {
public:
    [[gnu::noinline]] task_is_already_submitted()
        : error("The task was already submitted.", __builtin_return_address(0)) {}
};

/// Where its holders keep the task, so that none has to search for it. Each number is written
/// by its holder only, under that holder's lock.
struct task_positions {
    std::size_t in_container = 0; // read under that lock, too
    std::size_t in_processor = 0; // read and written as an atomic: it says which lock to take
};

class ZEL_EXPORT task_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 6;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual std::string get_name() const = 0;
    virtual std::uint32_t get_tag() const = 0;
    /// Null for a task without a container, or whose container has gone.
    virtual std::shared_ptr<task_container_low_level_ifc> get_container() const = 0;
    /// Only the first call does anything. With `skip_body` everything of a run
    /// happens but the body: the end of a task that was canceled before its start.
    virtual void run(bool skip_body) = 0;
    /// Throws task_is_already_submitted while another place has the task.
    virtual void set_submitter(const std::shared_ptr<task_submitter_ifc>& place) = 0;
    virtual std::shared_ptr<task_submitter_ifc> get_submitter() const = 0;
    virtual std::shared_ptr<task_submitter_ifc> take_submitter() = 0;
    virtual std::shared_ptr<ended_state_ifc> get_ended_state() const = 0;
    /// True for exactly one caller, who then has to `run` the task.
    virtual bool try_claim() = 0;
    virtual void set_queue(task_queue_ifc* queue) = 0;
    virtual void add_run_statistics(const run_snapshot& start, const run_snapshot& end) = 0;
    virtual void set_run_statistics(const run_statistics& statistics) = 0;
    virtual run_statistics get_run_statistics() const = 0;

    /// The same task as something that can be canceled.
    virtual cancellation_ifc& cancellation() noexcept = 0;
    virtual task_positions& positions() noexcept = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_ifc> {
    static std::string text() { return "class zel::tasklib::task_ifc"; }
};
