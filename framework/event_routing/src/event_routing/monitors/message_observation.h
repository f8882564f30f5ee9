// What the monitors of one request or snowball pass are going to be told.
//
// Without monitors nothing is noted and no clock is read.
#pragma once

#include "framework/event_routing/src/event_routing/module/message_counters.h"
#include "framework/event_routing/src/event_routing/monitors/measurement.h"
#include "framework/event_routing/src/event_routing/monitors/monitor_handlers.h"
#include "framework/event_routing/src/event_routing/monitors/working_parameters.h"
#include "framework/event_routing/src/event_routing/routing/handler_failures.h"
#include "framework/serialization/data_holder.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace zel::event_routing::impl {

/// Tells the monitors that there are when it is made, once. `Info` is the record that they
/// are given.
template <class Info>
class message_observation {
public:
    using data = std::shared_ptr<const serialization::IDataHolder>;
    using monitors =
        MonitorHandlers<void(const std::string& path, const data& input, const data& response,
                             const data& error_response, const routing_parameters& parameters,
                             const Info& info, std::exception_ptr error)>;

    message_observation(monitors& all, message_scope& message)
        : message_(message), told_(all.GetMonitors(message)) {
        if (!told_.empty())
            noted_.emplace();
    }

    /// Whether there is anybody to tell.
    explicit operator bool() const noexcept { return noted_.has_value(); }
    Info* operator->() noexcept { return &noted_->info; }

    /// Numbers the message unless nobody is told or it has a number.
    void add_number(working_parameters& parameters, std::uint32_t (*next_number)() noexcept) const {
        if (*this && !is_numbered(*parameters))
            fill_in_message_number(parameters.copy(), next_number());
    }

    /// Only where there is somebody to tell. Failures of monitors go to the diagnostic
    /// observers.
    void tell(const std::string& path, const data& input, const data& response,
              const data& error_response, const routing_parameters& parameters,
              const std::exception_ptr& error) {
        const platform::no_cancellation to_the_end;
        const auto failure = platform::guarded([&] {
            noted_->begin.end_into(noted_->info);
            monitors::NotifyMonitors(message_, told_, path, input, response, error_response,
                                     parameters, noted_->info, error);
        });
        if (failure)
            report_exception(failure);
    }

private:
    struct notes {
        measurement begin;
        Info info;
    };

    message_scope& message_;
    const typename monitors::snapshot told_;
    std::optional<notes> noted_;
};

} // namespace zel::event_routing::impl
