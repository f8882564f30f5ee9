// The handling object of one window.
#pragma once

#include <event_routing/in_wnd_proc_handling.h>

#include <platform/critical_section.h>
#include <platform/image_use.h>
#include <platform/window.h>

#include <list>
#include <vector>

namespace zel::event_routing::impl {

/// What announces work: the parameter tells it from that of other copies of the library.
struct work_message {
    platform::window_message message;
    std::uintptr_t instance_cookie;
};
/// Throws exceptions::error when no number is left for the message.
const work_message& work_message_of_this_library();

/// What a procedure is called with, beside its window.
struct window_call {
    platform::window_message message;
    std::uintptr_t wparam;
    std::intptr_t lparam;

    bool operator==(const window_call&) const = default;
};

class InWndProcHandling final : public IInWndProcHandling,
                                public std::enable_shared_from_this<InWndProcHandling> {
public:
    InWndProcHandling(platform::window_handle window,
                      std::shared_ptr<tasklib::task_queue_ifc> queue) noexcept
        : window_(window), queue_(std::move(queue)) {}
    /// Releases the cookies and drops queued work.
    ~InWndProcHandling() override;

    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    KeepHandlerRegistered(const std::shared_ptr<tasklib::keep_registered>& cookie) override;
    std::shared_ptr<tasklib::task_queue_ifc> GetTaskQueue() override { return queue_; }
    std::int32_t PostToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) override;
    std::int32_t SendToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) override;

    /// Once, before others get at the object. `behind` is null, or what the library's procedure
    /// led to before the window outlived a destroy message.
    void set_previous(platform::window_procedure procedure,
                      platform::window_procedure behind) noexcept {
        previous_ = procedure;
        behind_ = behind;
    }
    /// The window's procedure without the library's.
    platform::window_procedure previous() const noexcept { return previous_; }
    /// On the window's thread: has that procedure handle what is none of ours.
    std::intptr_t pass_on(const window_call& call);
    /// Of a work message: runs the item that it names, or the first that is queued.
    void run_work(std::intptr_t item);

private:
    struct posted_work {
        explicit posted_work(const std::shared_ptr<IInWndProcWorkItem>& posted)
            : use(platform::image_that_made(posted), "work for a window", {}), item(posted) {}

        const platform::image_use use; // ends after the item
        const std::shared_ptr<IInWndProcWorkItem> item;
    };

    void release(const std::shared_ptr<tasklib::keep_registered>& cookie);

    const platform::window_handle window_;
    platform::window_procedure previous_ = nullptr;
    // The previous procedure may be one that was in front of the library's until the window
    // outlived a destroy message, and still calls the library's. A call that comes back so
    // would go round for ever, and goes here instead.
    platform::window_procedure behind_ = nullptr;
    const window_call* innermost_ = nullptr; // that is being passed on; of the window's thread
    const std::shared_ptr<tasklib::task_queue_ifc> queue_;
    platform::critical_section cookie_guard_; // not held while a cookie is released
    std::vector<std::shared_ptr<tasklib::keep_registered>> cookies_ ZEL_GUARDED_BY(cookie_guard_);
    platform::critical_section work_guard_; // not held while work runs or is destroyed
    std::list<posted_work> work_ ZEL_GUARDED_BY(work_guard_);
};

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::impl::InWndProcHandling> {
    static std::string text() { return "class zel::event_routing::impl::InWndProcHandling"; }
};
