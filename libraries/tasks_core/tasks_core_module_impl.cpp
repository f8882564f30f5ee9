#include "libraries/tasks_core/tasks_core_module_impl.h"

#include "framework/lifetime/basic_singleton.h"
#include "framework/memory/block_stock.h"
#include "libraries/tasks_core/ended_state_impl.h"
#include "libraries/tasks_core/running_task.h"

#include <platform/process.h>

namespace zel::tasklib {

namespace {

// Ends before the module does, even where the module is still held and stays.
constinit lifetime::basic_singleton<task_running, lifetime::const_longevity_traits<201009>> running;

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
    for (const auto& task : scheduler_->stop_taking())
        task->cancellation().cancel();
    threads_->stop_taking();
    while (const auto task = threads_->take_rest())
        task->cancellation().cancel();
    threads_->join();
}

std::shared_ptr<ended_state_ifc> tasks_core_module_impl::create_ended_state() {
    return std::allocate_shared<ended_state_impl>(memory::recycling_allocator<ended_state_impl>());
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
