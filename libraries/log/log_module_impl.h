// The log: a list of sinks with the lowest severity each of them wants.
#pragma once

#include "framework/log/log_module.h"

#include <platform/critical_section.h>

#include <atomic>
#include <cstdint>
#include <vector>

namespace zel::log {

class LogModuleImpl final : public ILogModule, public std::enable_shared_from_this<LogModuleImpl> {
public:
    LogModuleImpl();

    const mi::LibraryDescriptor& GetLibraryDescriptor() const override;
    int LowestSeverity() const noexcept override {
        // Relaxed: a change is seen soon enough, and a record carries no state.
        return lowest_.load(std::memory_order_relaxed);
    }
    void Write(const record& entry) override;
    std::shared_ptr<InterfaceBase> AddSink(std::shared_ptr<ILogSink> sink,
                                           int lowest_severity) override;
    void SetDefaultSinkSeverity(int lowest_severity) override;

private:
    struct entry_t {
        std::shared_ptr<ILogSink> sink;
        int lowest_severity;
        std::uint64_t number; ///< names the subscription: a sink may have several
    };
    using sink_list = std::vector<entry_t>;
    class subscription;

    void remove(std::uint64_t number);
    void replace(sink_list list) ZEL_REQUIRES(guard_);

    // Guards the pointer; the list itself is never changed, so that a record is
    // written without a lock and a sink may come or go from inside a call.
    platform::critical_section guard_;
    std::shared_ptr<const sink_list> sinks_ ZEL_GUARDED_BY(guard_);
    std::uint64_t last_number_ ZEL_GUARDED_BY(guard_) = 0;
    std::atomic<int> lowest_{silent};
};

} // namespace zel::log
