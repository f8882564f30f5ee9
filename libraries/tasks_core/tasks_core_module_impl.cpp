#include "libraries/tasks_core/tasks_core_module_impl.h"

#include "framework/lifetime/basic_singleton.h"
#include "libraries/tasks_core/ended_state_impl.h"
#include "libraries/tasks_core/running_task.h"

#include <platform/process.h>
#include <platform/thread_gate.h>

#include <atomic>
#include <new>

namespace zel::tasklib {

namespace {

// Ends before the module does, even where the module is still held and stays.
constinit lifetime::basic_singleton<task_running, lifetime::const_longevity_traits<201009>> running;

// For those who submit tasks without a reference to the processor.
constinit platform::thread_gate gate_of_processor;
// Acquire and release: who finds it finds it made.
constinit std::atomic<task_processor_impl*> known_processor{nullptr};

template <class Reader>
auto read_running(Reader&& reader) {
    try {
        return running.read(std::forward<Reader>(reader));
    } catch (const lifetime::object_already_destroyed&) {
        throw exceptions::fatal("Tasks module already destroyed");
    }
}

std::int64_t milliseconds_of(std::chrono::hours hours) {
    return platform::milliseconds(hours).count();
}

void require_in_range(const char* limit, std::int64_t value, std::int64_t least,
                      std::int64_t most) {
    if (value < least || value > most)
        throw exceptions::error(std::string("task_thread_limits::") + limit + " is " +
                                std::to_string(value) + ", which is not from " +
                                std::to_string(least) + " to " + std::to_string(most) + ".");
}

} // namespace

void task_running::start() {
    if (has_started())
        return;
    auto threads = std::make_shared<task_threads>(limits_);
    auto processor = std::make_shared<task_processor_impl>(threads);
    auto scheduler = std::make_shared<task_scheduler_impl>(threads);
    threads->start_timer_thread(); // last, because it would have to be joined
    threads_ = std::move(threads);
    processor_ = std::move(processor);
    scheduler_ = std::move(scheduler);
    process_ = platform::process_id();
    platform::thread_gate::prepare();
    known_processor.store(processor_.get(), std::memory_order_release);
}

bool task_running::submit(const std::shared_ptr<task_ifc>& task) {
    const platform::thread_gate::visit inside(gate_of_processor);
    auto* const processor = inside ? known_processor.load(std::memory_order_acquire) : nullptr;
    if (processor)
        processor->submit(task, 0); // may start a thread, and waits for no task
    return processor != nullptr;
}

std::shared_ptr<task_threads> task_running::set_limits(const task_thread_limits& limits) noexcept {
    limits_ = limits;
    if (has_started())
        threads_->set_limits(limits);
    return threads_;
}

bool task_running::is_used() const noexcept {
    return processor_.use_count() > 1 || scheduler_.use_count() > 1;
}

void task_running::end() {
    if (!has_started())
        return;
    if (process_ != platform::process_id()) {
        // The child of a fork has none of the threads, but may have their locks.
        new std::shared_ptr<void>(std::move(threads_));
        new std::shared_ptr<void>(std::move(processor_));
        new std::shared_ptr<void>(std::move(scheduler_));
        return;
    }
    known_processor.store(nullptr, std::memory_order_release);
    gate_of_processor.close();
    for (const auto& task : scheduler_->stop_taking())
        task->cancellation().cancel();
    threads_->stop_taking();
    while (const auto task = threads_->take_rest())
        task->cancellation().cancel();
    threads_->join();
}

namespace {

// No part of the module, so that whoever makes a task needs no reference to that.
class task_making final : public task_making_ifc {
public:
    versioned_ifc* query_interface(const interface_id& wanted) override {
        return wanted == versioned_ifc::id || wanted == task_making_ifc::id ? this : nullptr;
    }
    ended_state_ifc* make_ended_state_in(void* memory, std::size_t room) noexcept override {
        static_assert(alignof(ended_state_impl) <= alignof(void*));
        const bool can = has_module.load(std::memory_order_relaxed);
        return can && room >= sizeof(ended_state_impl) ? ::new (memory) ended_state_impl : nullptr;
    }
    std::shared_ptr<cancellation_ifc> get_this_taskcancellation() override {
        return this_task_cancellation();
    }
    bool submit(const std::shared_ptr<task_ifc>& task) override {
        return task_running::submit(task);
    }

    // Relaxed: a task that is made while the module ends may be made before or afterwards.
    std::atomic<bool> has_module{false};
};

// Never destroyed.
task_making& making() {
    alignas(task_making) static std::byte room[sizeof(task_making)];
    static auto* const made = ::new (room) task_making;
    return *made;
}

} // namespace

tasks_core_module_impl::tasks_core_module_impl() {
    making().has_module.store(true, std::memory_order_relaxed);
}

tasks_core_module_impl::~tasks_core_module_impl() {
    making().has_module.store(false, std::memory_order_relaxed);
}

versioned_ifc* tasks_core_module_impl::query_interface(const interface_id& wanted) {
    if (wanted == task_making_ifc::id)
        return &making();
    return wanted == versioned_ifc::id ? this : nullptr;
}

std::shared_ptr<ended_state_ifc> tasks_core_module_impl::create_ended_state() {
    return std::make_shared<ended_state_impl>();
}

std::shared_ptr<task_processor_ifc> tasks_core_module_impl::get_task_processor() {
    return read_running([](task_running& r) { return r.processor(); });
}

std::shared_ptr<cancellation_ifc> tasks_core_module_impl::get_this_taskcancellation() {
    return this_task_cancellation();
}

LogExceptionFunctionData& tasks_core_module_impl::log_exception_function() {
    return log_exception_function_;
}

std::shared_ptr<task_scheduler_ifc> tasks_core_module_impl::get_task_scheduler() {
    return read_running([](task_running& r) { return r.scheduler(); });
}

bool tasks_core_module_impl::are_threads_used() {
    return running.read_if_created([](const task_running& r) { return r.is_used(); })
        .value_or(false);
}

int tasks_core_module_impl::own_objects() {
    return running.read_if_created([](const task_running& r) { return r.has_started() ? 2 : 0; })
        .value_or(0);
}

const mi::LibraryDescriptor& task_threads_module_impl::GetLibraryDescriptor() const {
    static const mi::LibraryDescriptor descriptor;
    return descriptor;
}

void task_threads_module_impl::set_limits(const task_thread_limits& limits) {
    require_in_range("most_threads", limits.most_threads, 1, 4096);
    require_in_range("cores", limits.cores, 1, limits.most_threads);
    require_in_range("stalled", limits.stalled.count(), 1, milliseconds_of(std::chrono::hours(1)));
    require_in_range("idle", limits.idle.count(), 30, milliseconds_of(std::chrono::hours(24)));
    // Threads are started when nobody has to wait for it.
    if (const auto threads = read_running([&](task_running& r) { return r.set_limits(limits); }))
        threads->follow_limits();
}

task_thread_limits task_threads_module_impl::get_limits() {
    return read_running([](const task_running& r) { return r.limits(); });
}

} // namespace zel::tasklib
