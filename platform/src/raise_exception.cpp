#include <platform/critical_section.h>
#include <platform/diagnostics.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace zel::platform {

namespace {

using observer_list = std::vector<std::shared_ptr<const exception_observer::function>>;

// The list is replaced as a whole, so that a raise walks a fixed one without a
// lock and an observer may come and go from inside a call.
struct observers {
    critical_section guard; // guards the pointer to the current list
    std::shared_ptr<const observer_list> list ZEL_GUARDED_BY(guard);
    // How many there are, for a raise that nobody hears. Relaxed: an observer
    // that is just being added may miss a raise on another thread.
    std::atomic<std::size_t> count{0};
};

observers& all() {
    // Never destroyed: a raise may come from the last action of the process.
    static auto* const instance = new observers;
    return *instance;
}

void replace(observers& o, observer_list list) ZEL_REQUIRES(o.guard) {
    o.count.store(list.size(), std::memory_order_relaxed);
    o.list = std::make_shared<const observer_list>(std::move(list));
}

} // namespace

exception_observer::exception_observer(function observer)
    : observer_(std::make_shared<const function>(std::move(observer))) {
    observers& o = all();
    scoped_lock inside(o.guard);
    observer_list list = o.list ? *o.list : observer_list();
    list.push_back(observer_);
    replace(o, std::move(list));
}

exception_observer::~exception_observer() {
    observers& o = all();
    scoped_lock inside(o.guard);
    observer_list list = *o.list;
    std::erase(list, observer_);
    replace(o, std::move(list));
}

void raise_exception(diagnostic code, raise_arguments arguments) noexcept {
    observers& o = all();
    if (o.count.load(std::memory_order_relaxed) == 0)
        return;
    std::shared_ptr<const observer_list> list;
    {
        scoped_lock inside(o.guard);
        list = o.list;
    }
    for (const auto& observer : *list) {
        // What an observer throws must not disturb the code that raised.
        guarded([&] { (*observer)(code, arguments); });
    }
}

} // namespace zel::platform
