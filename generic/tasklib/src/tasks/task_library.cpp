#include "generic/tasklib/src/tasks/task_library.h"

#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/neighbour_module.h"
#include "generic/tasklib/src/tasks/tasks_log.h"

#include <platform/process.h>
#include <platform/thread_gate.h>

#include <atomic>
#include <span>

namespace zel::tasklib {

namespace {

constinit log::source_position measurement_missing(__FILE__, 30);
constexpr int most_pauses = 50;

// Guards the library: whoever calls into it without owning one of its objects is inside
// meanwhile.
constinit platform::thread_gate gate_of_library;
// What tasks are made with, as long as the library is there. Acquire and release: who finds it
// finds the library mapped. Null before the first use, and with a library that does not offer it.
constinit std::atomic<task_making_ifc*> making{nullptr};

class tasks_core_library : public mi::neighbour_module<tasks_core_module> {
public:
    tasks_core_library()
        : neighbour_module({"zel_tasks_core", "_ZN3zel7tasklib6detail21CreateTasksCoreModuleEv",
                            "_ZN3zel7tasklib6detail23GetModuleLifetimeObjectEv"}) {
        platform::thread_gate::prepare();
        const auto module = lock();
        if (auto* const asked = dynamic_cast<versioned_ifc*>(module.get()))
            making.store(query<task_making_ifc>(*asked), std::memory_order_release);
    }

    /// Refuses, and leaves the library loaded, while its objects are in use.
    void end() {
        making.store(nullptr, std::memory_order_release);
        // A thread lets go of a task a moment after that has told of its end, on which
        // its maker may have waited.
        for (int pause = 0; pause < most_pauses && is_used(); ++pause)
            platform::sleep_for(platform::milliseconds(1));
        refuse_while_used();
        // The last state has counted itself out, and its destructor may still have to return.
        gate_of_library.close();
        refuse_while_used(); // a state may have been made meanwhile
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

namespace {

ended_state_ifc* make_ended_state_in(std::span<std::byte> room) noexcept {
    const platform::thread_gate::visit inside(gate_of_library);
    auto* const maker = inside ? making.load(std::memory_order_acquire) : nullptr;
    return maker ? maker->make_ended_state_in(room.data(), room.size()) : nullptr;
}

} // namespace

own_ended_state::own_ended_state() : state_(make_ended_state_in(room_)) {
    if (state_)
        return;
    const auto library = get_tasks_module(); // which is perhaps loaded only now
    state_ = make_ended_state_in(room_);
    if (state_)
        return;
    auto state = library->create_ended_state();
    RequireInterface(*state);
    state_ = state.get();
    ::new (room_) separate(std::move(state));
}

own_ended_state::~own_ended_state() {
    const platform::thread_gate::visit until_it_returns(gate_of_library);
    if (is_separate()) {
        std::destroy_at(std::launder(reinterpret_cast<separate*>(room_)));
        return;
    }
    state_->~ended_state_ifc();
}

std::shared_ptr<ended_state_ifc>
own_ended_state::share(const std::shared_ptr<const void>& task) const {
    if (is_separate())
        return *std::launder(reinterpret_cast<const separate*>(room_));
    return separate(std::const_pointer_cast<void>(task), state_);
}

std::shared_ptr<cancellation_ifc> cancellation_around(const own_ended_state&) {
    auto* const known = making.load(std::memory_order_acquire);
    return known ? known->get_this_taskcancellation()
                 : get_tasks_module()->get_this_taskcancellation();
}

void submit_to_library(const std::shared_ptr<task_ifc>& task) {
    auto* const known = making.load(std::memory_order_acquire);
    if (!known || !known->submit(task))
        get_task_processor()->submit(task, 0);
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
