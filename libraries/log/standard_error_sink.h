// The sink every process starts with: a line per record on standard error, and for a failure
// that comes again and again a line with its count now and then (repeated_failures.h).
#pragma once

#include "framework/log/log_module.h"
#include "libraries/log/repeated_failures.h"

#include <memory>

namespace spdlog {
class logger;
}

namespace zel::log {

class standard_error_sink final : public ILogSink {
public:
    standard_error_sink();
    /// Writes the counts that were not told yet.
    ~standard_error_sink() override;
    void Write(const record& entry) override;

private:
    void write_failure(const record& entry);
    void write_counts();
    void write_line(const std::string& line);

    repeated_failures failures_;
    std::unique_ptr<spdlog::logger> logger_;
};

} // namespace zel::log
