#include "libraries/log/log_module_impl.h"

#include "libraries/log/exception_text.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace zel::log {

// Ends the feeding of one sink. Holds the log weakly: it may be gone before.
class LogModuleImpl::subscription final : public InterfaceBase {
public:
    subscription(std::weak_ptr<LogModuleImpl> log, std::shared_ptr<entry> own)
        : log_(std::move(log)), own_(std::move(own)) {}
    ~subscription() override {
        const platform::no_cancellation to_the_end;
        own_->is_active.store(false, std::memory_order_relaxed);
        // If there is no memory for a new list, the entry stays in this one until the next
        // change.
        if (const auto log = log_.lock())
            platform::guarded([&] { log->change([](sink_list&) {}); });
        own_.reset();
    }

private:
    std::weak_ptr<LogModuleImpl> log_;
    std::shared_ptr<entry> own_; // so that the sink never ends under the log's guard
};

// Another list in the place of this one, without those whose subscription has ended.
template <class Edit>
void LogModuleImpl::change(const Edit& edit) {
    std::shared_ptr<const sink_list> former; // goes, with its sinks, when the guard is free
    platform::scoped_lock inside(guard_);
    sink_list list = *sinks_;
    std::erase_if(list,
                  [](const auto& e) { return !e->is_active.load(std::memory_order_relaxed); });
    edit(list);
    int lowest = silent;
    for (const auto& wanting : list)
        lowest = std::min(lowest, wanting->lowest_severity);
    former = std::exchange(sinks_, std::make_shared<const sink_list>(std::move(list)));
    lowest_.store(lowest, std::memory_order_relaxed);
}

LogModuleImpl::LogModuleImpl() {
    change([&](sink_list& list) {
        list.push_back(std::make_shared<entry>(default_sink_, severity::failed_operation));
    });
}

void LogModuleImpl::Write(const record& written) {
    std::shared_ptr<const sink_list> sinks;
    {
        platform::scoped_lock inside(guard_);
        sinks = sinks_;
    }
    record complete = written;
    std::string text;
    if (written.exception) // without memory the record goes without the exception's text
        platform::guarded([&] {
            text = std::string(written.text) + "\n" + exception_text(written.exception);
            complete.text = text;
        });
    // A sink that fails keeps no other from its record.
    std::exception_ptr first_failure;
    for (const auto& wanting : *sinks) {
        if (written.severity < wanting->lowest_severity ||
            !wanting->is_active.load(std::memory_order_relaxed))
            continue;
        const auto& own_form = wanting->sink == default_sink_ ? written : complete;
        const auto failure = platform::guarded([&] { wanting->sink->Write(own_form); });
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
    const auto added = std::make_shared<entry>(std::move(sink), lowest_severity);
    auto result = std::make_shared<subscription>(weak_from_this(), added);
    change([&](sink_list& list) { list.push_back(added); });
    return result;
}

void LogModuleImpl::SetDefaultSinkSeverity(int lowest_severity) {
    change([&](sink_list& list) {
        list.front() = std::make_shared<entry>(default_sink_, lowest_severity);
    });
    // What was counted so far was for the former severity; a sink that is to be silent from now
    // on tells it no later.
    default_sink_->write_counts();
}

} // namespace zel::log
