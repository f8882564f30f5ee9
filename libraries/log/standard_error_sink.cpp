#include "libraries/log/standard_error_sink.h"

#include <platform/diagnostics.h>

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

std::string line_of(const record& entry, std::string_view text) {
    return fmt::format("{} {}:{} [{}] {}", entry.module, entry.source_id, entry.line,
                       entry.severity, on_one_line(text));
}

} // namespace

standard_error_sink::standard_error_sink()
    : logger_(std::make_unique<spdlog::logger>("log",
                                               std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
    logger_->set_pattern("%Y-%m-%d %H:%M:%S.%e %t %v");
    // Severities were compared before the record came here.
    logger_->set_level(spdlog::level::trace);
}

standard_error_sink::~standard_error_sink() {
    platform::guarded([&] { write_counts(); });
}

void standard_error_sink::Write(const record& entry) {
    if (entry.exception)
        write_failure(entry);
    else
        write_line(line_of(entry, entry.text));
}

void standard_error_sink::write_failure(const record& entry) {
    // The exception's text stands behind the first line.
    const auto failure = line_of(entry, entry.text.substr(0, entry.text.find('\n')));
    auto count = failures_.count(failure);
    while (!count) {
        write_counts();
        count = failures_.count(failure);
    }
    if (*count == 1)
        write_line(line_of(entry, entry.text));
    else if (*count > 1)
        write_line(fmt::format("{}: {} times so far", failure, *count));
}

void standard_error_sink::write_counts() {
    for (const auto& [failure, count] : failures_.take_unshown())
        write_line(fmt::format("{}: {} times in all", failure, count));
}

void standard_error_sink::write_line(const std::string& line) {
    logger_->log(spdlog::level::info, "{}", line);
}

} // namespace zel::log
