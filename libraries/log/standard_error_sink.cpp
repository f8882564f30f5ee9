#include "libraries/log/standard_error_sink.h"

#include "framework/exceptions/exceptions.h"
#include "libraries/log/exception_text.h"

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
    write_counts();
}

void standard_error_sink::Write(const record& entry) {
    if (entry.exception)
        write_failure(entry);
    else
        write_line(line_of(entry, entry.text));
}

void standard_error_sink::write_failure(const record& entry) {
    auto line = line_of(entry, entry.text);
    const auto times = count(line);
    if (times == 0)
        return;
    const bool in_full = times.value_or(1) == 1;
    if (!in_full)
        line += fmt::format(": {} times so far", *times);
    // What is thrown may be another exception than the first time. Without memory for its text
    // the line goes without it.
    platform::guarded([&] {
        line += " | " + on_one_line(in_full ? exception_text(entry.exception)
                                            : exceptions::brief_text(entry.exception));
    });
    write_line(line);
}

// Nothing where memory is too short to count: then the failure is shown.
std::optional<std::uint64_t> standard_error_sink::count(const std::string& failure) noexcept {
    std::optional<std::uint64_t> times;
    platform::guarded([&] {
        while (!(times = failures_.count(failure)))
            write_counts();
    });
    return times;
}

void standard_error_sink::write_counts() noexcept {
    for (const auto& counted : failures_.take()) {
        if (!counted.second.has_unshown())
            continue;
        platform::guarded([&] { // a line that cannot be written keeps no other from it
            write_line(fmt::format("{}: {} times in all", counted.first, counted.second.come));
        });
    }
}

void standard_error_sink::write_line(const std::string& line) {
    logger_->log(spdlog::level::info, "{}", line);
}

} // namespace zel::log
