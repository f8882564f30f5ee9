#include "libraries/perfstats/performance_logger_storage_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/version_check.h"

#include <platform/thread_statistics.h>

namespace zel::perfstats {

namespace {

// Looked at by every run of a task in the process, and mapped as long as the
// library. Relaxed: a run that begins while it changes may miss it.
constinit std::atomic<bool> measuring{false};

Data current_statistics() {
    const auto read = platform::read_thread_statistics();
    if (!read)
        throw exceptions::error("The system keeps no statistics of threads.");
    return {read->user_time,  read->kernel_time,        read->page_faults,
            read->page_reads, read->voluntary_switches, read->involuntary_switches};
}

} // namespace

performance_logger_storage_impl::~performance_logger_storage_impl() {
    measuring.store(false, std::memory_order_relaxed);
}

std::shared_ptr<tasklib::performance_logger_ifc>
performance_logger_storage_impl::get_performance_logger() {
    platform::scoped_lock inside(guard_);
    return logger_
               ? std::shared_ptr<tasklib::performance_logger_ifc>(logger_, logger_->logger.get())
               : nullptr;
}

void performance_logger_storage_impl::set_performance_logger(
    std::shared_ptr<tasklib::performance_logger_ifc> logger) {
    if (logger)
        RequireInterface(*logger);
    auto replacement = logger ? std::make_shared<const installed>(std::move(logger)) : nullptr;
    platform::scoped_lock inside(guard_);
    logger_.swap(replacement); // the former one is released outside of the lock
    update_measuring();
}

void performance_logger_storage_impl::set_measurement(bool on) {
    platform::scoped_lock inside(guard_);
    switched_on_ = on;
    update_measuring();
}

void performance_logger_storage_impl::update_measuring() {
    measuring.store(switched_on_ && logger_, std::memory_order_relaxed);
}

const std::atomic<bool>& performance_logger_storage_impl::is_measuring() const noexcept {
    return measuring;
}

Data performance_logger_storage_impl::begin_thread_statistics() {
    return current_statistics();
}

Data performance_logger_storage_impl::end_thread_statistics() {
    return current_statistics();
}

} // namespace zel::perfstats
