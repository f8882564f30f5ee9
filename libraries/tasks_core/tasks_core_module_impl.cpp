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

} // namespace

task_running::task_running()
    : threads_(std::make_shared<task_threads>(thread_limits())),
      processor_(std::make_shared<task_processor_impl>(threads_)),
      scheduler_(std::make_shared<task_scheduler_impl>(threads_)),
      process_(platform::process_id()) {}

bool task_running::is_used() const noexcept {
    return processor_.use_count() > 1 || scheduler_.use_count() > 1;
}

void task_running::end() {
    if (process_ != platform::process_id()) {
        // The child of a fork has none of the threads, but may have their locks.
        new std::shared_ptr<void>(std::move(threads_));
        new std::shared_ptr<void>(std::move(processor_));
        new std::shared_ptr<void>(std::move(scheduler_));
        return;
    }
    for (const auto& task : scheduler_->stop_taking())
        task->cancellation().cancel();
    for (const auto& task : threads_->stop_taking())
        task->cancellation().cancel();
    threads_->join();
}

std::shared_ptr<ended_state_ifc> tasks_core_module_impl::create_ended_state() {
    return std::allocate_shared<ended_state_impl>(memory::recycling_allocator<ended_state_impl>());
}

std::shared_ptr<task_processor_ifc> tasks_core_module_impl::get_task_processor() {
    return read_running([](const task_running& r) { return r.processor(); });
}

std::shared_ptr<cancellation_ifc> tasks_core_module_impl::get_this_taskcancellation() {
    return this_task_cancellation();
}

LogExceptionFunctionData& tasks_core_module_impl::log_exception_function() {
    return log_exception_function_;
}

std::shared_ptr<task_scheduler_ifc> tasks_core_module_impl::get_task_scheduler() {
    return read_running([](const task_running& r) { return r.scheduler(); });
}

bool tasks_core_module_impl::are_threads_used() {
    return running.read_if_created([](const task_running& r) { return r.is_used(); })
        .value_or(false);
}

int tasks_core_module_impl::own_objects() {
    return running.read_if_created([](const task_running&) { return 2; }).value_or(0);
}

} // namespace zel::tasklib
