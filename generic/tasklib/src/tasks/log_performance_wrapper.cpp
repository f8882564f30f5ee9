#include <tasklib/log_performance_wrapper.h>

#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"
#include "generic/tasklib/src/tasks/tasks_log.h"

#include "framework/module_interface/version_check.h"

#include <platform/clocks.h>
#include <platform/impersonation_watch.h>

namespace zel::tasklib {

namespace {

constinit log::source_position stop_failed(__FILE__, 66);

double seconds(std::int64_t ticks, platform::clock rate) {
    const auto ticks_per_second = platform::read_clock(rate);
    return ticks_per_second && *ticks_per_second > 0
               ? static_cast<double>(ticks) / static_cast<double>(*ticks_per_second)
               : 0.0;
}

std::int64_t now(platform::clock which) {
    return *platform::read_clock(which); // 0 where there is none
}

} // namespace

log_performance_wrapper::log_performance_wrapper(std::uint32_t kind, const std::string& name)
    : kind_(kind), name_(name), measuring_(is_measuring()) {
    if (measuring_)
        begin();
}

void log_performance_wrapper::begin() {
    start_.performance_counter = now(platform::clock::performance_counter);
    start_.thread_cycles = now(platform::clock::thread_cycles);
    // A run is worth reporting without these.
    platform::guarded(
        [&] { statistics_ = get_performance_logger_storage_module()->begin_thread_statistics(); });
}

void log_performance_wrapper::stop() noexcept {
    if (!std::exchange(measuring_, false))
        return;
    const platform::no_cancellation to_the_end;
    if (const auto failure = platform::guarded([&] { report(); }))
        tasks_log.report(log::severity::handler_failed, stop_failed, failure, [] {
            return std::string("Error while stopping log_performance_wrapper");
        });
}

void log_performance_wrapper::report() const {
    const auto elapsed = now(platform::clock::performance_counter) - start_.performance_counter;
    const auto cycles = now(platform::clock::thread_cycles) - start_.thread_cycles;
    const auto storage = get_performance_logger_storage_module();
    perfstats::Data difference;
    if (statistics_)
        difference = storage->end_thread_statistics() - *statistics_;
    const auto logger = storage->get_performance_logger();
    if (!logger || name_ == queue_runner_name)
        return;
    RequireInterface(*logger);
    platform::foreign_code_runs();
    logger->log_task_performance(
        kind_, name_, seconds(elapsed, platform::clock::performance_frequency),
        seconds(cycles, platform::clock::thread_cycle_rate), statistics_ ? &difference : nullptr);
}

} // namespace zel::tasklib
