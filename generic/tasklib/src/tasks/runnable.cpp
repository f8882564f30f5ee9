#include "generic/tasklib/src/tasks/runnable.h"

#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/tasks_log.h"

#include <tasklib/log_performance_wrapper.h>

namespace zel::tasklib {

namespace {

constinit log::source_position named_failed(__FILE__, 374);
constinit log::source_position unnamed_failed(__FILE__, 376);
constinit log::source_position named_unchecked(__FILE__, 400);
constinit log::source_position unnamed_unchecked(__FILE__, 402);

std::string failure_text(runnable_kind kind, const std::string& name, const char* what) {
    return name.empty() ? std::string("Unnamed ") + name_of(kind) + what
                        : std::string(name_of(kind)) + " " + name + what;
}

// A host's own function comes before the log. Whatever it throws, the run goes on.
bool host_was_told(const std::exception_ptr& failure) {
    bool told = false;
    platform::guarded([&] {
        if (const auto function = get_tasks_module()->log_exception_function().get()) {
            told = true;
            (*function)(failure);
        }
    });
    return told;
}

} // namespace

const char* name_of(runnable_kind kind) noexcept {
    switch (kind) {
    case runnable_kind::unspecified:
        return "Unspecified runnable";
    case runnable_kind::thread:
        return "thread";
    case runnable_kind::task:
        return "task";
    }
    return "Unknown runnable";
}

// The end of a run comes however the body ends.
struct runnable::ending {
    explicit ending(std::shared_ptr<runnable> run) noexcept : run_(std::move(run)) {}
    ~ending() {
        const platform::no_cancellation to_the_end;
        run_->end_run(run_, std::move(shown_before));
    }
    ending(const ending&) = delete;
    ending& operator=(const ending&) = delete;

    std::optional<std::string> shown_before; // on the thread, unless it still is

private:
    const std::shared_ptr<runnable> run_;
};

runnable::runnable(runnable_kind kind, std::string name,
                   std::shared_ptr<ended_state_ifc> ended_state)
    : ended_state_(std::move(ended_state)), kind_(kind), name_(std::move(name)) {}

runnable::~runnable() {
    if (!failure_ || failure_fetched_)
        return;
    tasks_log.report_handler_failure(
        name_.empty() ? unnamed_unchecked : named_unchecked, failure_,
        [&] { return failure_text(kind_, name_, ": failed without a caller check."); });
}

void runnable::run_once(bool skip_body) {
    if (started_.exchange(1, std::memory_order_relaxed) != 0)
        return;
    ending at_the_end(shared_from_this());
    // A thread that does not show what it does is no reason not to do it.
    platform::guarded([&] { prepare_thread(at_the_end.shown_before); });
    ended_state_->set_running_thread(platform::this_thread_id());
    const log_performance_wrapper measurement(static_cast<std::uint32_t>(kind_), name_);
    std::exception_ptr failure;
    if (!skip_body)
        failure = platform::guarded([&] { run_body(); });
    if (failure)
        body_failed(failure);
}

void runnable::body_failed(const std::exception_ptr& failure) {
    const platform::no_cancellation to_the_end;
    {
        platform::scoped_lock inside(guard_);
        failure_ = failure;
    }
    if (!host_was_told(failure))
        tasks_log.report(log::severity::task_failed, name_.empty() ? unnamed_failed : named_failed,
                         failure, [&] { return failure_text(kind_, name_, ": failed."); });
}

void runnable::end_run(const std::shared_ptr<runnable>& self,
                       std::optional<std::string> shown_before) noexcept {
    drop_body();
    platform::guarded([&] { leave_holders(self); });
    if (shown_before)
        restore_thread(*std::move(shown_before));
    ended_state_->set_ended();
}

std::exception_ptr runnable::fetch_failure() {
    platform::scoped_lock inside(guard_);
    failure_fetched_ = true;
    return failure_;
}

} // namespace zel::tasklib
