// The log: a list of sinks with the lowest severity each of them wants.
#pragma once

#include "framework/log/log_module.h"
#include "libraries/log/standard_error_sink.h"

#include <platform/critical_section.h>
#include <platform/image_use.h>

#include <atomic>
#include <cstdint>
#include <vector>

namespace zel::log {

class LogModuleImpl final : public ILogModule, public std::enable_shared_from_this<LogModuleImpl> {
public:
    LogModuleImpl();

    int LowestSeverity() const noexcept override {
        // Relaxed: a change is seen soon enough, and a record carries no state.
        return lowest_.load(std::memory_order_relaxed);
    }
    void Write(const record& written) override;
    std::shared_ptr<InterfaceBase> AddSink(std::shared_ptr<ILogSink> sink,
                                           int lowest_severity) override;
    void SetDefaultSinkSeverity(int lowest_severity) override;

private:
    /// One for each subscription: a sink may have several.
    struct entry {
        entry(std::shared_ptr<ILogSink> to, int lowest)
            : use(platform::image_that_made(to), "log sink", {}), sink(std::move(to)),
              lowest_severity(lowest) {}

        const platform::image_use use; // ends after the sink
        const std::shared_ptr<ILogSink> sink;
        const int lowest_severity;
        std::atomic<bool> is_active{true}; // relaxed: a record may always be under way
    };
    using sink_list = std::vector<std::shared_ptr<entry>>;
    class subscription;

    template <class Edit>
    void change(const Edit& edit);

    const std::shared_ptr<standard_error_sink> default_sink_ =
        std::make_shared<standard_error_sink>();
    // Guards the pointer; the list itself is never changed, so that a record is
    // written without a lock and a sink may come or go from inside a call.
    platform::critical_section guard_;
    std::shared_ptr<const sink_list>
        sinks_ ZEL_GUARDED_BY(guard_) = std::make_shared<const sink_list>();
    std::atomic<int> lowest_{silent};
};

} // namespace zel::log
