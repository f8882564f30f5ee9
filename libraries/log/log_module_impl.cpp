#include "libraries/log/log_module_impl.h"

#include "libraries/log/exception_text.h"
#include "libraries/log/standard_error_sink.h"

#include <platform/diagnostics.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace zel::log {

// Ends the feeding of one sink. Holds the log weakly: it may be gone before.
class LogModuleImpl::subscription final : public InterfaceBase {
public:
    subscription(std::weak_ptr<LogModuleImpl> log, std::shared_ptr<ILogSink> sink,
                 std::uint64_t number)
        : log_(std::move(log)), sink_(std::move(sink)), number_(number) {}
    ~subscription() override {
        if (const auto log = log_.lock())
            log->remove(number_);
    }

private:
    std::weak_ptr<LogModuleImpl> log_;
    std::shared_ptr<ILogSink> sink_; // so that it never ends under the log's guard
    std::uint64_t number_;
};

LogModuleImpl::LogModuleImpl() {
    platform::scoped_lock inside(guard_);
    replace({{std::make_shared<standard_error_sink>(), severity::failed_operation, 0}});
}

const mi::LibraryDescriptor& LogModuleImpl::GetLibraryDescriptor() const {
    static const mi::LibraryDescriptor descriptor;
    return descriptor;
}

void LogModuleImpl::Write(const record& entry) {
    std::shared_ptr<const sink_list> sinks;
    {
        platform::scoped_lock inside(guard_);
        sinks = sinks_;
    }
    record complete = entry;
    std::string text;
    if (entry.exception) {
        text = std::string(entry.text) + "\n" + exception_text(entry.exception);
        complete.text = text;
    }
    // A sink that fails keeps no other from its record.
    std::exception_ptr first_failure;
    for (const auto& wanting : *sinks) {
        if (entry.severity < wanting.lowest_severity)
            continue;
        const auto failure = platform::guarded([&] { wanting.sink->Write(complete); });
        if (!first_failure)
            first_failure = failure;
    }
    if (first_failure)
        std::rethrow_exception(first_failure);
}

std::shared_ptr<InterfaceBase> LogModuleImpl::AddSink(std::shared_ptr<ILogSink> sink,
                                                      int lowest_severity) {
    if (!sink)
        throw std::invalid_argument("zel::log::ILogModule::AddSink: the sink is null.");
    platform::scoped_lock inside(guard_);
    auto result = std::make_shared<subscription>(weak_from_this(), sink, ++last_number_);
    sink_list list = *sinks_;
    list.push_back({std::move(sink), lowest_severity, last_number_});
    replace(std::move(list));
    return result;
}

void LogModuleImpl::SetDefaultSinkSeverity(int lowest_severity) {
    platform::scoped_lock inside(guard_);
    sink_list list = *sinks_;
    list.front().lowest_severity = lowest_severity;
    replace(std::move(list));
}

void LogModuleImpl::remove(std::uint64_t number) {
    platform::scoped_lock inside(guard_);
    sink_list list = *sinks_;
    std::erase_if(list, [&](const entry_t& e) { return e.number == number; });
    replace(std::move(list));
}

void LogModuleImpl::replace(sink_list list) {
    int lowest = silent;
    for (const auto& entry : list)
        lowest = std::min(lowest, entry.lowest_severity);
    sinks_ = std::make_shared<const sink_list>(std::move(list));
    lowest_.store(lowest, std::memory_order_relaxed);
}

} // namespace zel::log
