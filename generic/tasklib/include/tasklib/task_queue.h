// Running tasks one after another in the order in which they were stored.
#pragma once

#include <tasklib/fwd.h>
#include <tasklib/interface_id.h>

#include <framework/module_interface/interface.h>

#include <cstddef>
#include <memory>

namespace zel::tasklib {

/// Holds tasks and runs them on threads that are lent to it. Any thread may call
/// any operation.
class ZEL_EXPORT task_queue_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 2;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Stores a task. True when the caller has to see to a thread that calls
    /// `run_all_stored_tasks`. Waits for up to 5 s while more than 1024 tasks are
    /// stored; throws canceled_exception when the calling task is canceled
    /// meanwhile.
    virtual bool push(const std::shared_ptr<task_ifc>& task) = 0;

    /// Runs tasks on the calling thread until none is stored; returns at once when
    /// enough threads do that already.
    virtual void run_all_stored_tasks(const std::shared_ptr<task_processor_ifc>& processor) = 0;

    /// An owner asks this before it submits a runner. False when the owner need not: as many
    /// runners as the queue allows are running, or have been submitted by this owner, and
    /// they will run all that is stored.
    virtual bool needs_runner(const void* owner) = 0;
    /// The owner has submitted a runner, which may have begun already.
    virtual void runner_submitted(const void* owner) noexcept = 0;
    /// A runner that the owner has submitted, or is about to submit, has begun or will never
    /// begin.
    virtual void runner_came(const void* owner) noexcept = 0;
};

enum class push_outcome : std::int32_t {
    full = 0,         ///< the task is not stored
    stored = 1,       ///< and will be run by a runner that is there
    needs_runner = 2, ///< stored, but see task_queue_ifc::push
};

/// What a queue says of its room. Any thread may call any operation.
class ZEL_EXPORT task_queue_room_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"335F1677-D9C5-473C-B7F3-5C017E237057"};

    /// The tasks that are stored and that no runner has taken so far.
    virtual std::size_t length() const noexcept = 0;
    /// Stores the task unless `push` would wait: while more than 1024 are stored.
    virtual push_outcome try_push(const std::shared_ptr<task_ifc>& task) = 0;
};

/// Null for a queue that does not say. Lives as long as the queue.
///
///     if (const auto* room = room_of(*queue); room && room->length() > 100) ...
inline task_queue_room_ifc* room_of(task_queue_ifc& queue) {
    auto* const asked = dynamic_cast<versioned_ifc*>(&queue);
    return asked ? query<task_queue_room_ifc>(*asked) : nullptr;
}

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_queue_ifc> {
    static std::string text() { return "class zel::tasklib::task_queue_ifc"; }
};
