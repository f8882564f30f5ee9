// Work on the thread of a window, inside the window's procedure.
//
//     auto window_work = zel::event_routing::get_in_wnd_proc_handling(*module, window);
//     post_to_window(*window_work, [] { redraw(); });                    // queued
//     send_to_window(*window_work, [&] { size = measure(); });           // waits
//     auto cookie = window_work->KeepHandlerRegistered(                  // ends with the
//         events->RegisterEventHandler(window_work->GetTaskQueue(),      // window, if not
//                                      "document.*", nullptr, on_document, // before
//                                      "title bar"));
//
// (`post_to_window` and `send_to_window` are in event_routing/window_work.h.)
//
// The first request for a window puts a procedure of the library in front of the
// window's own. The window and its messages are those of platform/window.h: its
// thread has to take messages. When the window is destroyed, its own procedure is put
// back and the library forgets the window. Queued work is dropped and kept cookies are
// released with the handling object: then, or later when its last holder lets it go.
//
// All operations may be called on any thread, also from inside work. What work throws
// leaves the function in which the window's thread took the message. The work behind
// it stays queued. A thread that has sent the work gets 0, as for work that was done.
#pragma once

#include <tasklib/keep_registered.h>
#include <tasklib/task_queue.h>

#include <framework/module_interface/interface.h>

#include <cstdint>
#include <memory>

namespace zel::event_routing {

/// Something to do on a window's thread.
class ZEL_EXPORT IInWndProcWorkItem : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Runs on the window's thread.
    virtual void Execute() = 0;
};

/// Work and cookies of one window. Any thread may call every operation.
class ZEL_EXPORT IInWndProcHandling : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Keeps a cookie until the result is dropped or the window has gone, whichever
    /// comes first. The result itself keeps nothing alive. Null is nothing to keep.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    KeepHandlerRegistered(const std::shared_ptr<tasklib::keep_registered>& cookie) = 0;

    /// The queue for the window's handlers; its tasks run on threads of the task
    /// library, one at a time.
    virtual std::shared_ptr<tasklib::task_queue_ifc> GetTaskQueue() = 0;

    /// Queues work, which runs in the order in which it was posted. Nonzero when it
    /// was announced to the window. 0 when the window is gone or has no room for
    /// another message; the work stays queued and runs when later work is announced.
    /// Throws exceptions::error for a null item.
    virtual std::int32_t PostToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) = 0;

    /// Has work done and returns after its end: at once on the window's thread, else
    /// when that thread takes the message. 0, and 0 as well when the window is gone, goes
    /// meanwhile, or the work throws over there. Throws exceptions::error for a null item.
    virtual std::int32_t SendToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) = 0;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IInWndProcWorkItem> {
    static std::string text() { return "class zel::event_routing::IInWndProcWorkItem"; }
};

template <>
struct zel::declared_type_name<zel::event_routing::IInWndProcHandling> {
    static std::string text() { return "class zel::event_routing::IInWndProcHandling"; }
};
