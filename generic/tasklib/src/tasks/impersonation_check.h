// Sees to it that a body leaves its thread acting for the process itself.
#pragma once

#include <platform/impersonation_watch.h>

#include <string>

namespace zel::tasklib {

/// Made before the body.
class impersonation_check {
public:
    /// When the body has returned, with a function that makes its task's name: ends an
    /// impersonation that it left behind. The first time in the process the diagnostic observers
    /// are told. Throws exceptions::error when the system does not name the users.
    template <class TaskName>
    void body_returned(const TaskName& task_name) {
        if (watch_.finds_impersonation())
            end_impersonation(task_name());
    }

private:
    static void end_impersonation(const std::string& task_name);

    platform::impersonation_watch watch_;
};

} // namespace zel::tasklib
