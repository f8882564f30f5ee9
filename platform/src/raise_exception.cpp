#include <platform/cancellation.h>
#include <platform/critical_section.h>
#include <platform/diagnostics.h>
#include <platform/image_use.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <vector>

namespace zel::platform {

// An observer that has gone is not called any more, whatever list still names it.
struct exception_observer::entry {
    explicit entry(function f)
        : use(image_that_made(f), "diagnostic observer", {}), observer(std::move(f)) {}
    const image_use use; // ends after the observer
    function observer;
    std::atomic<bool> active{true}; // looked at by raises on any thread
};

struct exception_observer::registry {
    using observer_list = std::vector<std::shared_ptr<entry>>;

    // Guards the pointer. The list is replaced as a whole, so that a raise walks a
    // fixed one without a lock and an observer may come and go from inside a call.
    critical_section guard;
    std::shared_ptr<const observer_list> list ZEL_GUARDED_BY(guard);
    // How many there are, for a raise that nobody hears. Relaxed: an observer
    // that is just being added may miss a raise on another thread.
    std::atomic<std::size_t> count{0};

    static registry& all() {
        // Never destroyed: a raise may come from the last action of the process.
        static auto* const instance = new registry;
        return *instance;
    }

    /// Replaces the list by a changed copy; with an exception it stays.
    template <class Change>
    void change(Change&& change_copy) {
        scoped_lock inside(guard);
        auto changed = std::make_shared<observer_list>(list ? *list : observer_list());
        change_copy(*changed);
        count.store(changed->size(), std::memory_order_relaxed);
        list = std::move(changed);
    }

    std::shared_ptr<const observer_list> current() {
        scoped_lock inside(guard);
        return list;
    }
};

exception_observer::exception_observer(function observer)
    : entry_(std::make_shared<entry>(std::move(observer))) {
    registry::all().change([&](auto& list) { list.push_back(entry_); });
}

exception_observer::~exception_observer() {
    entry_->active.store(false);
    // If there is no memory for a shorter list, the long one stays, with this entry in it.
    guarded([&] { registry::all().change([&](auto& list) { std::erase(list, entry_); }); });
}

void raise_exception(diagnostic code, raise_arguments arguments) noexcept {
    auto& observers = exception_observer::registry::all();
    if (observers.count.load(std::memory_order_relaxed) == 0)
        return;
    const no_cancellation to_the_end;
    const auto list = observers.current();
    for (const auto& entry : *list) {
        // What an observer throws must not disturb the code that raised.
        if (entry->active.load())
            guarded([&] { entry->observer(code, arguments); });
    }
}

void raise_text_report(std::string_view text) noexcept {
    const std::array<std::uintptr_t, 2> arguments = {text.size(),
                                                     reinterpret_cast<std::uintptr_t>(text.data())};
    raise_exception(diagnostic::text_report, arguments);
}

} // namespace zel::platform
