// Collects what the process logs while the object lives.
#pragma once

#include <framework/log/log_module.h>

#include <mutex>
#include <string>
#include <vector>

namespace zel::test {

class log_capture {
public:
    struct line {
        std::string module, text;
        int number;
        int severity;
    };

    explicit log_capture(int lowest_severity) : log_(log::get_log_module()) {
        log_->SetDefaultSinkSeverity(log::silent);
        subscription_ = log_->AddSink(sink_, lowest_severity);
    }
    ~log_capture() { log_->SetDefaultSinkSeverity(log::severity::failed_operation); }

    std::vector<line> lines() const {
        std::lock_guard inside(sink_->guard);
        return sink_->lines;
    }

    /// The same lines as "severity text".
    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const auto& logged : lines())
            all.push_back(std::to_string(logged.severity) + " " + logged.text);
        return all;
    }

private:
    struct sink : log::ILogSink {
        void Write(const log::record& r) override {
            std::lock_guard inside(guard);
            lines.push_back({std::string(r.module), std::string(r.text), r.line, r.severity});
        }
        std::mutex guard;
        std::vector<line> lines;
    };

    std::shared_ptr<log::ILogModule> log_;
    std::shared_ptr<sink> sink_ = std::make_shared<sink>();
    std::shared_ptr<InterfaceBase> subscription_;
};

} // namespace zel::test
