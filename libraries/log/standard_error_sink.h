// The sink every process starts with: a line per record on standard error.
#pragma once

#include "framework/log/log_module.h"

#include <memory>

namespace spdlog {
class logger;
}

namespace zel::log {

class standard_error_sink final : public ILogSink {
public:
    standard_error_sink();
    ~standard_error_sink() override;
    void Write(const record& entry) override;

private:
    std::unique_ptr<spdlog::logger> logger_;
};

} // namespace zel::log
