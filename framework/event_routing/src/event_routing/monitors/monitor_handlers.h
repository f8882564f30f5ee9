// The monitors of one routing service.
//
// A snapshot is taken when a message starts and used until its last record is
// sent, so a monitor registered meanwhile is not told of half a message. It holds
// the callables weakly: taking one never keeps a removed monitor alive.
#pragma once

#include "framework/event_routing/src/event_routing/routing/retirable.h"
#include "generic/tasklib/src/tasks/reg_cookie.h"

#include <platform/critical_section.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

namespace zel::event_routing {

/// Any thread may call any operation. Always a shared object.
template <class Signature>
class MonitorHandlers : public std::enable_shared_from_this<MonitorHandlers<Signature>> {
public:
    using monitor = impl::retirable<std::function<Signature>>;
    using list = std::vector<std::shared_ptr<monitor>>;

    /// In the order of registration, until a removal puts the last one into the gap.
    class snapshot {
    public:
        snapshot() = default;
        explicit snapshot(std::shared_ptr<const list> monitors) noexcept
            : monitors_(std::move(monitors)) {}

        bool empty() const noexcept { return !monitors_ || monitors_->empty(); }

    private:
        friend class MonitorHandlers;
        std::shared_ptr<const list> monitors_;
    };

    /// The monitor is told of messages that start from now on, until the cookie is
    /// dropped; that waits for its calls on other threads. The cookie does not keep
    /// this object alive.
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(std::function<Signature> callable);

    /// Run by the cookie. Does nothing for a monitor that is not registered.
    void UnregisterMonitorHandler(const monitor* address);

    snapshot GetMonitors() const {
        // Acquire: who registered a monitor, or heard of it, gets it. Without any, a
        // message costs this one look.
        if (!has_monitors_.load(std::memory_order_acquire))
            return {};
        platform::scoped_lock inside(guard_);
        if (!latest_)
            latest_ = std::make_shared<const list>(monitors_);
        return snapshot(latest_);
    }

    /// Calls the monitors of the snapshot that are still registered, on the calling
    /// thread. An exception from one ends the notification.
    template <class... Arguments>
    static void NotifyMonitors(const snapshot& told, const Arguments&... arguments) {
        if (told.empty())
            return;
        for (const auto& entry : *told.monitors_)
            if (const impl::running_call callable(*entry); callable)
                (*callable)(arguments...);
    }

private:
    void list_has_changed() noexcept ZEL_REQUIRES(guard_) {
        latest_.reset();
        has_monitors_.store(!monitors_.empty(), std::memory_order_release);
    }

    // Guards the fields below. Every message enters for its snapshot; never held while a
    // monitor is called.
    mutable platform::brief_lock guard_;
    list monitors_ ZEL_GUARDED_BY(guard_);
    // A copy that snapshots share; null after a change.
    mutable std::shared_ptr<const list> latest_ ZEL_GUARDED_BY(guard_);
    // Written under the guard.
    std::atomic<bool> has_monitors_{false};
};

template <class Signature>
std::shared_ptr<tasklib::keep_registered>
MonitorHandlers<Signature>::RegisterMonitorHandler(std::function<Signature> callable) {
    const impl::callable_code code{"monitor", platform::image_that_made(callable)};
    const auto added = std::make_shared<monitor>(std::move(callable), code);
    auto cookie = tasklib::make_reg_cookie([registry = std::weak_ptr(this->shared_from_this()),
                                            address = added.get(), orphan = std::weak_ptr(added)] {
        if (const auto still_there = registry.lock())
            still_there->UnregisterMonitorHandler(address);
        else if (const auto in_snapshots = orphan.lock())
            in_snapshots->retire();
    });
    platform::scoped_lock inside(guard_);
    monitors_.push_back(added);
    list_has_changed();
    return cookie;
}

template <class Signature>
void MonitorHandlers<Signature>::UnregisterMonitorHandler(const monitor* address) {
    std::shared_ptr<monitor> removed;
    {
        platform::scoped_lock inside(guard_);
        const auto place = std::find_if(monitors_.begin(), monitors_.end(),
                                        [&](const auto& m) { return m.get() == address; });
        if (place == monitors_.end())
            return;
        removed = std::exchange(*place, monitors_.back());
        monitors_.pop_back();
        list_has_changed();
    }
    removed->retire();
}

} // namespace zel::event_routing
