// The sink every process starts with: a line per record on standard error, and for a failure
// that comes again and again a line with its count now and then (repeated_failures.h).
#pragma once

#include "framework/log/log_module.h"
#include "libraries/log/repeated_failures.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace spdlog {
class logger;
}

namespace zel::log {

class standard_error_sink final : public ILogSink {
public:
    standard_error_sink();
    /// Writes the counts that were not told yet.
    ~standard_error_sink() override;
    /// The log hands this sink the bare message, not followed by the exception's text: by the
    /// message, which may itself have several lines, failures are told apart.
    void Write(const record& entry) override;
    /// Writes the counts that were not told yet, and forgets all. Never fails.
    void write_counts() noexcept;

private:
    void write_failure(const record& entry);
    std::optional<std::uint64_t> count(const std::string& failure) noexcept;
    void write_line(const std::string& line);

    repeated_failures failures_;
    std::unique_ptr<spdlog::logger> logger_;
};

} // namespace zel::log
