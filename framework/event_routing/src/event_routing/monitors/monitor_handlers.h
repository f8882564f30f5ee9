// The monitors of one routing service.
//
// A message takes a snapshot when it starts and uses it until its last record is sent, so a
// monitor registered meanwhile is not told of half a message. A snapshot holds the callables
// weakly: taking one never keeps a removed monitor alive. It costs no reference: the message
// names it in its frame, as it does with its handlers (match_records.h).
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
    struct shared_list;

public:
    using monitor = impl::retirable<std::function<Signature>>;
    using list = std::vector<std::shared_ptr<monitor>>;

    explicit MonitorHandlers(std::shared_ptr<impl::thread_records> threads) noexcept
        : threads_(std::move(threads)) {}
    /// No message of the service is under way, but for asynchronous parts, which have
    /// references to their snapshots.
    ~MonitorHandlers() { threads_->forget_uses_of(this); }
    MonitorHandlers(const MonitorHandlers&) = delete;
    MonitorHandlers& operator=(const MonitorHandlers&) = delete;

    /// In the order of registration, until a removal puts the last one into the gap.
    class snapshot {
    public:
        snapshot() = default;

        bool empty() const noexcept { return !monitors_; }

        /// One that outlives the message, for a message on another thread, which names it.
        snapshot share() const {
            snapshot shared(*this);
            if (monitors_)
                shared.owner_ = monitors_->shared_from_this();
            return shared;
        }
        void name_in(impl::message_scope& message) const noexcept {
            if (monitors_)
                message.frame().snapshot.name_opaque(monitors_);
        }

    private:
        friend class MonitorHandlers;
        explicit snapshot(const shared_list& monitors) noexcept : monitors_(&monitors) {}

        const shared_list* monitors_ = nullptr;
        std::shared_ptr<const shared_list> owner_;
    };

    /// The monitor is told of messages that start from now on, until the cookie is
    /// dropped; that waits for its calls on other threads. The cookie does not keep
    /// this object alive.
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(std::function<Signature> callable);

    /// Run by the cookie. Does nothing for a monitor that is not registered.
    void UnregisterMonitorHandler(const monitor* address);

    /// Stays until the message ends.
    snapshot GetMonitors(impl::message_scope& message) {
        // Acquire: who registered a monitor, or heard of it, gets it. Without any, a
        // message costs this one look.
        if (!has_monitors_.load(std::memory_order_acquire))
            return {};
        const auto* const found = latest_.load(std::memory_order_acquire);
        auto& named = message.frame().snapshot;
        const auto is_still_there = [&] {
            return latest_.load(std::memory_order_seq_cst) == found;
        };
        if (found && (named.last_of(this) == found || named.name_if(found, this, is_still_there)))
            return snapshot(*found);
        return make_snapshot(message);
    }

    /// Calls the monitors of the snapshot that are still registered, on the calling
    /// thread. An exception from one ends the notification.
    template <class... Arguments>
    static void NotifyMonitors(const impl::message_scope& message, const snapshot& told,
                               const Arguments&... arguments) {
        if (told.empty())
            return;
        for (const auto& entry : told.monitors_->monitors)
            if (const impl::announced_call callable(message, impl::removal_waits::yes, *entry);
                callable)
                (*callable)(arguments...);
    }

private:
    // A copy of the list that snapshots share.
    struct shared_list : std::enable_shared_from_this<shared_list> {
        explicit shared_list(const list& all) : monitors(all) {}

        const list monitors;
        std::shared_ptr<shared_list> older; // of those replaced; guarded by guard_
    };

    snapshot make_snapshot(impl::message_scope& message);
    void list_has_changed() noexcept ZEL_REQUIRES(guard_);
    void forget_unused() noexcept ZEL_REQUIRES(guard_);

    const std::shared_ptr<impl::thread_records> threads_;
    // Guards the fields below; never held while a monitor is called. Nested in it is the
    // guard of the thread records.
    platform::plain_lock guard_;
    list monitors_ ZEL_GUARDED_BY(guard_);
    std::shared_ptr<shared_list> copy_ ZEL_GUARDED_BY(guard_);     // null after a change
    std::shared_ptr<shared_list> replaced_ ZEL_GUARDED_BY(guard_); // which messages may name
    // The copy, for those without the guard. Sequentially consistent where a message looks
    // whether what it has named still holds, and where that ends.
    std::atomic<const shared_list*> latest_{nullptr};
    std::atomic<bool> has_monitors_{false}; // written under the guard
};

template <class Signature>
std::shared_ptr<tasklib::keep_registered>
MonitorHandlers<Signature>::RegisterMonitorHandler(std::function<Signature> callable) {
    const impl::callable_code code{"monitor", platform::image_that_made(callable)};
    const auto added =
        std::make_shared<monitor>(std::move(callable), code, "", "", impl::callable_role::monitor);
    auto cookie = tasklib::make_reg_cookie([registry = std::weak_ptr(this->shared_from_this()),
                                            address = added.get(), orphan = std::weak_ptr(added),
                                            threads = threads_] {
        if (const auto still_there = registry.lock())
            still_there->UnregisterMonitorHandler(address);
        else if (const auto in_snapshots = orphan.lock())
            in_snapshots->retire(*threads);
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
    removed->retire(*threads_);
}

// Takes no memory, because a cookie must always be able to go.
template <class Signature>
void MonitorHandlers<Signature>::list_has_changed() noexcept {
    has_monitors_.store(!monitors_.empty(), std::memory_order_release);
    if (!copy_)
        return;
    latest_.store(nullptr, std::memory_order_seq_cst);
    copy_->older = std::exchange(replaced_, nullptr);
    replaced_ = std::exchange(copy_, nullptr);
    forget_unused();
}

template <class Signature>
void MonitorHandlers<Signature>::forget_unused() noexcept {
    for (auto* link = &replaced_; *link;)
        if (threads_->is_named(link->get()))
            link = &(*link)->older;
        else
            *link = std::shared_ptr<shared_list>((*link)->older);
}

template <class Signature>
auto MonitorHandlers<Signature>::make_snapshot(impl::message_scope& message) -> snapshot {
    platform::scoped_lock inside(guard_);
    if (monitors_.empty())
        return {};
    if (!copy_) {
        copy_ = std::make_shared<shared_list>(monitors_);
        latest_.store(copy_.get(), std::memory_order_release);
    }
    message.frame().snapshot.name_if(copy_.get(), this, [] { return true; });
    return snapshot(*copy_);
}

} // namespace zel::event_routing
