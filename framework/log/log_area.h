// How this library writes its records.
//
//     constinit source_position position{__FILE__, 313};
//     routing_log.write(severity::registration, position, [&] { return "Registering " + path; });
//
// The text is made only when a sink wants the severity. `report` never throws: a failure
// that cannot be logged must not become a second one.
#pragma once

#include "framework/log/log_module.h"
#include "framework/log/source_position.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

#include <string>

namespace zel::log {

class log_area {
public:
    constexpr explicit log_area(std::string_view module) noexcept : module_(module) {}

    /// What the log library or a sink throws reaches the caller.
    template <class MakeText>
    void write(int severity, source_position& position, MakeText&& make_text) const {
        if (const auto log = wanted(severity))
            hand_over(*log, severity, position, make_text(), nullptr);
    }

    /// For a record of what is about to happen. A sink that throws must not prevent that, so
    /// what it throws is dropped; what keeps the log library from being used reaches the
    /// caller.
    template <class MakeText>
    void announce(int severity, source_position& position, MakeText&& make_text) const {
        if (const auto log = wanted(severity))
            platform::guarded([&] { hand_over(*log, severity, position, make_text(), nullptr); });
    }

    /// Writes a message with an exception attached.
    template <class MakeText>
    void report(int severity, source_position& position, const std::exception_ptr& failure,
                MakeText&& make_text) const {
        const platform::no_cancellation to_the_end;
        platform::guarded([&] {
            if (const auto log = wanted(severity))
                hand_over(*log, severity, position, make_text(), failure);
        });
    }

    /// The same at severity 7, or 8 for an exceptions::fatal.
    template <class MakeText>
    void report_handler_failure(source_position& position, const std::exception_ptr& failure,
                                MakeText&& make_text) const {
        report(severity_of_failure(failure), position, failure, std::forward<MakeText>(make_text));
    }

private:
    /// The log, if a sink wants the severity; null also when the log has ended.
    static std::shared_ptr<ILogModule> wanted(int severity);
    static int severity_of_failure(const std::exception_ptr& failure);
    void hand_over(ILogModule& log, int severity, source_position& position,
                   const std::string& text, const std::exception_ptr& failure) const;

    std::string_view module_;
};

} // namespace zel::log
