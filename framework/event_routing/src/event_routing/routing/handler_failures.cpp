#include "framework/event_routing/src/event_routing/routing/handler_failures.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/lifetime/basic_singleton.h"

#include <fmt/format.h>

#include <array>
#include <unordered_set>

namespace zel::event_routing::impl {

namespace {

constinit log::source_position synchronous_part_threw(
    "event_routing/framework/event_routing/src/event_routing/handler_failures.cpp", 40);

class reported_failures {
public:
    /// True the first time.
    bool insert(std::string key) {
        platform::scoped_lock inside(guard_);
        return keys_.insert(std::move(key)).second;
    }

private:
    platform::critical_section guard_; // guards the keys; any thread may fail
    std::unordered_set<std::string> keys_ ZEL_GUARDED_BY(guard_);
};

// Outlives the module and its services.
constexpr int longevity = 150000;
constinit lifetime::basic_singleton<reported_failures, lifetime::const_longevity_traits<longevity>>
    reported;

} // namespace

void report_exception(const std::exception_ptr& failure) noexcept {
    const std::array<std::uintptr_t, 1> arguments = {reinterpret_cast<std::uintptr_t>(&failure)};
    platform::raise_exception(platform::diagnostic::exception_report, arguments);
}

void synchronous_part_failed(const std::exception_ptr& failure, const std::string& path,
                             std::int32_t level, const std::string& description) {
    // When the library is ending the set of keys is gone; then nothing is reported.
    platform::guarded([&] {
        if (reported.read([&](auto& r) { return r.insert(path + "*" + description); }))
            report_exception(failure);
    });
    routing_log.report_handler_failure(synchronous_part_threw, failure, [&] {
        return fmt::format(
            "Synchronous part of handler for {}, level={}, description={} throws exception!", path,
            level, description);
    });
}

} // namespace zel::event_routing::impl
