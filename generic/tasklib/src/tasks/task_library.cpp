#include "generic/tasklib/src/tasks/task_library.h"

#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/neighbour_module.h"
#include "generic/tasklib/src/tasks/tasks_log.h"

#include <platform/process.h>

#include <atomic>

namespace zel::tasklib {

namespace {

constinit log::source_position measurement_missing(__FILE__, 30);
constexpr int most_pauses = 50;

class tasks_core_library : public mi::neighbour_module<tasks_core_module> {
public:
    tasks_core_library()
        : neighbour_module({"zel_tasks_core", "_ZN3zel7tasklib6detail21CreateTasksCoreModuleEv",
                            "_ZN3zel7tasklib6detail23GetModuleLifetimeObjectEv"}) {}

    /// Refuses, and leaves the library loaded, while its objects are in use.
    void end() {
        // A thread lets go of a task a moment after that has told of its end, on which
        // its maker may have waited.
        for (int pause = 0; pause < most_pauses && is_used(); ++pause)
            platform::sleep_for(platform::milliseconds(1));
        refuse_while_used();
    }
};

// Where is_measuring looks: unknown, switched off for good, or the library's flag.
constinit std::atomic<bool> never{false};
// Release and acquire: the library is mapped before its flag is read.
constinit std::atomic<const std::atomic<bool>*> measurement{nullptr};

class perfstats_library : public mi::neighbour_module<performance_logger_storage_module> {
public:
    perfstats_library()
        : neighbour_module({"zel_perfstats",
                            "_ZN3zel9perfstats6detail36CreatePerformanceLoggerStorageModuleEv",
                            "_ZN3zel9perfstats6detail23GetModuleLifetimeObjectEv"}) {}
    // The flag is mapped as long as the library, which is given back next.
    ~perfstats_library() { measurement.store(&never, std::memory_order_release); }
};

// After everything that runs or waits for tasks, before the log.
constexpr int longevity = lifetime::host_threshold + 1000;
constinit lifetime::basic_singleton<tasks_core_library, lifetime::const_longevity_traits<longevity>>
    tasks_core;
constinit lifetime::basic_singleton<perfstats_library, lifetime::const_longevity_traits<longevity>>
    perfstats;

bool find_measurement() {
    const std::atomic<bool>* found = &never;
    if (const auto failure = platform::guarded(
            [&] { found = &get_performance_logger_storage_module()->is_measuring(); }))
        tasks_log.report(log::severity::failed_operation, measurement_missing, failure,
                         [] { return std::string("Tasks are not measured."); });
    const std::atomic<bool>* unknown = nullptr;
    measurement.compare_exchange_strong(unknown, found, std::memory_order_release,
                                        std::memory_order_relaxed);
    return found->load(std::memory_order_relaxed);
}

} // namespace

std::shared_ptr<tasks_core_module> get_tasks_module() {
    return mi::require_module<exceptions::fatal>(tasks_core, "Tasks module already destroyed");
}

std::shared_ptr<performance_logger_storage_module> get_performance_logger_storage_module() {
    return mi::require_module<exceptions::fatal>(
        perfstats, "Task performance logger storage module already destroyed");
}

std::shared_ptr<task_processor_ifc> get_task_processor() {
    auto processor = get_tasks_module()->get_task_processor();
    RequireInterface(*processor);
    return processor;
}

std::shared_ptr<task_scheduler_ifc> get_task_scheduler() {
    auto scheduler = get_tasks_module()->get_task_scheduler();
    RequireInterface(*scheduler);
    return scheduler;
}

std::shared_ptr<ended_state_ifc> new_ended_state(tasks_core_module& library) {
    // Relaxed: to check more than one does no harm.
    static constinit std::atomic<bool> is_checked{false};
    auto state = library.create_ended_state();
    if (!is_checked.load(std::memory_order_relaxed)) {
        RequireInterface(*state);
        is_checked.store(true, std::memory_order_relaxed);
    }
    return state;
}

std::shared_ptr<cancellation_ifc> get_this_taskcancellation() {
    return get_tasks_module()->get_this_taskcancellation();
}

bool is_measuring() noexcept {
    // Relaxed: a run that begins while a logger is installed may miss it.
    if (const auto* flag = measurement.load(std::memory_order_acquire))
        return flag->load(std::memory_order_relaxed);
    return find_measurement();
}

} // namespace zel::tasklib
