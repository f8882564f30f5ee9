// Measures one run and tells the performance logger.
#pragma once

#include <tasklib/performance_logger.h>
#include <tasklib/run_statistics.h>

#include <optional>

namespace zel::tasklib {

/// Measures from its construction until `stop`, both on one thread. If runs are not being
/// measured when it is made, it reads no clock and reports nothing.
class log_performance_wrapper {
public:
    /// The name must outlive the object.
    log_performance_wrapper(std::uint32_t kind, const std::string& name);
    ~log_performance_wrapper() { stop(); }
    log_performance_wrapper(const log_performance_wrapper&) = delete;
    log_performance_wrapper& operator=(const log_performance_wrapper&) = delete;

    /// Reports the run, once. What fails is logged.
    void stop() noexcept;

private:
    void begin();
    void report() const;

    std::uint32_t kind_;
    const std::string& name_;
    bool measuring_;
    run_snapshot start_;
    std::optional<perfstats::Data> statistics_;
};

} // namespace zel::tasklib
