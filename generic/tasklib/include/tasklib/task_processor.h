// Where tasks run: the threads of the task library.
//
// There are as many threads as cores. When a task waits through the library (for
// another task, for room in a queue) or announces a wait of its own
// (platform/announced_wait.h), another thread takes over at once; when tasks block
// unseen and waiting ones make no progress, a thread is added every 50 ms. A host may
// set other limits (task_threads_module.h).
#pragma once

#include <tasklib/task_ifc.h>

namespace zel::tasklib {

class ZEL_EXPORT task_processor_ifc : public task_submitter_ifc {
public:
    static constexpr std::int32_t interface_version = 4;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Hands a task over and returns. The flags are reserved. Throws
    /// exceptions::fatal when the task library has ended, task_is_already_submitted
    /// for a task that another place has.
    virtual void submit(const std::shared_ptr<task_ifc>& task, std::uint32_t flags) = 0;

    /// Runs a task on the calling thread and returns when its run has ended. With
    /// `claim` it is first claimed and left alone when somebody else has it. When
    /// the task library has ended it is canceled instead.
    virtual void execute(const std::shared_ptr<task_ifc>& task, bool claim) = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_processor_ifc> {
    static std::string text() { return "class zel::tasklib::task_processor_ifc"; }
};
