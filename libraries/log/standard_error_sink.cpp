#include "libraries/log/standard_error_sink.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <string>

namespace zel::log {

namespace {

// A record stays one line, whatever handlers and paths put into it.
std::string on_one_line(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        if (c == '\n')
            line += " | ";
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            line += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        else
            line += c;
    }
    return line;
}

} // namespace

standard_error_sink::standard_error_sink()
    : logger_(std::make_unique<spdlog::logger>("log",
                                               std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
    logger_->set_pattern("%Y-%m-%d %H:%M:%S.%e %t %v");
    // Severities were compared before the record came here.
    logger_->set_level(spdlog::level::trace);
}

standard_error_sink::~standard_error_sink() = default;

void standard_error_sink::Write(const record& entry) {
    logger_->log(spdlog::level::info, "{} {}:{} [{}] {}", entry.module, entry.source_id, entry.line,
                 entry.severity, on_one_line(entry.text));
}

} // namespace zel::log
