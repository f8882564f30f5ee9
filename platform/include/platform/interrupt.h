// Ending in an orderly way when somebody asks the process to end.
//
//     interrupt_watch interrupt;
//     while (work_is_left() && !interrupt.requested().wait(milliseconds(0)))
//         work();
//     return interrupt.exit_code().value_or(0);
#pragma once

#include <platform/event.h>
#include <platform/export.h>

#include <memory>
#include <optional>

namespace zel::platform {

/// While the object lives, the first request to end the process (Ctrl-C, or the system's
/// polite one) sets an event and does nothing else; the second one ends the process at once.
/// A request that the process was started to ignore stays ignored.
///
/// There may be one object at a time. The thread that makes it destroys it, and makes it
/// before it starts other threads: when the system gives a request to a thread that was
/// there earlier, the request may end the process as if there were no object.
class ZEL_EXPORT interrupt_watch {
public:
    /// Throws std::system_error, and std::logic_error while there is another one.
    interrupt_watch();
    ~interrupt_watch();
    interrupt_watch(const interrupt_watch&) = delete;
    interrupt_watch& operator=(const interrupt_watch&) = delete;

    /// Stays signalled from the first request on.
    event& requested() noexcept;
    /// The exit code by which others see that a process has ended because of the request
    /// that has come; nothing while none has come.
    std::optional<int> exit_code() const noexcept;

private:
    class implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace zel::platform
