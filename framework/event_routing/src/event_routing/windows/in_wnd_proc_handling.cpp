#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling.h"

#include "framework/exceptions/exceptions.h"
#include "generic/tasklib/src/tasks/reg_cookie.h"

#include <platform/cancellation.h>

#include <algorithm>
#include <gsl/util>
#include <random>
#include <utility>

namespace zel::event_routing::impl {

namespace {

IInWndProcWorkItem& required(const std::shared_ptr<IInWndProcWorkItem>& item,
                             const char* operation) {
    if (!item)
        throw exceptions::error(std::string("zel::event_routing::IInWndProcHandling::") +
                                operation + ": the work item is null.");
    return *item;
}

work_message make_work_message() {
    constexpr std::string_view text =
        "InWndProcHandlingManager-F11114B9-D845-458F-828D-30B1800AA4EA";
    const auto message = platform::register_window_message(text);
    if (message == 0)
        throw exceptions::error("No number is left for the window message " + std::string(text));
    return {message, std::random_device()()};
}

} // namespace

const work_message& work_message_of_this_library() {
    static const work_message made_once = make_work_message();
    return made_once;
}

InWndProcHandling::~InWndProcHandling() {
    const platform::no_cancellation to_the_end;
    cookies_.clear(); // first, because handlers that still run may use the rest
    work_.clear();
}

std::shared_ptr<tasklib::keep_registered>
InWndProcHandling::KeepHandlerRegistered(const std::shared_ptr<tasklib::keep_registered>& cookie) {
    if (cookie) {
        const platform::scoped_lock inside(cookie_guard_);
        cookies_.push_back(cookie);
    }
    try {
        return tasklib::make_reg_cookie([stored = std::weak_ptr<tasklib::keep_registered>(cookie),
                                         keeper = std::weak_ptr(shared_from_this())] {
            if (const auto still_stored = stored.lock())
                if (const auto still_there = keeper.lock())
                    still_there->release(still_stored);
        });
    } catch (...) {
        release(cookie);
        throw;
    }
}

void InWndProcHandling::release(const std::shared_ptr<tasklib::keep_registered>& cookie) {
    // The caller's reference is the last one, and goes outside of the guard.
    const platform::scoped_lock inside(cookie_guard_);
    if (const auto found = std::find(cookies_.begin(), cookies_.end(), cookie);
        found != cookies_.end())
        cookies_.erase(found);
}

std::int32_t InWndProcHandling::PostToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) {
    required(item, "PostToWindow");
    {
        const platform::scoped_lock inside(work_guard_);
        work_.emplace_back(item);
    }
    const auto& [message, instance_cookie] = work_message_of_this_library();
    return platform::post_message(window_, message, instance_cookie, 0);
}

std::int32_t InWndProcHandling::SendToWindow(const std::shared_ptr<IInWndProcWorkItem>& item) {
    const auto address = reinterpret_cast<std::intptr_t>(&required(item, "SendToWindow"));
    const auto& [message, instance_cookie] = work_message_of_this_library();
    return static_cast<std::int32_t>(
        platform::send_message(window_, message, instance_cookie, address).value_or(0));
}

void InWndProcHandling::run_work(std::intptr_t item) {
    if (item != 0) {
        reinterpret_cast<IInWndProcWorkItem*>(item)->Execute();
        return;
    }
    std::list<posted_work> first;
    {
        const platform::scoped_lock inside(work_guard_);
        if (work_.empty())
            return;
        first.splice(first.begin(), work_, work_.begin());
    }
    const auto dropped = gsl::finally([&] {
        const platform::no_cancellation to_the_end;
        first.clear();
    });
    first.front().item->Execute();
}

std::intptr_t InWndProcHandling::pass_on(const window_call& call) {
    const bool has_come_back = behind_ && innermost_ && *innermost_ == call;
    const auto outer = std::exchange(innermost_, &call);
    const auto left = gsl::finally([&] { innermost_ = outer; });
    const auto procedure = has_come_back ? behind_ : previous_;
    return procedure(window_, call.message, call.wparam, call.lparam);
}

} // namespace zel::event_routing::impl
