#include "generic/tasklib/src/tasks/runnable.h"

#include "generic/tasklib/src/tasks/tasks_log.h"

#include <tasklib/log_performance_wrapper.h>

#include <optional>

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

// Measures a run while somebody listens.
class runnable::measurement {
public:
    explicit measurement(const runnable& run) {
        if (is_measuring())
            platform::guarded([&] { begin(run); }); // a run is worth more than its measurement
    }

private:
    void begin(const runnable& run) {
        name_ = run.name();
        wrapper_.emplace(static_cast<std::uint32_t>(run.kind_), name_);
    }

    std::string name_;
    std::optional<log_performance_wrapper> wrapper_;
};

// The end of a run comes however the body ends.
struct runnable::ending {
    explicit ending(runnable& run) noexcept : run_(run) {}
    ~ending() {
        const platform::no_cancellation to_the_end;
        run_.end_run(on_thread_);
    }
    ending(const ending&) = delete;
    ending& operator=(const ending&) = delete;

private:
    static std::string name_of_run(const void* run) {
        return static_cast<const runnable*>(run)->name();
    }

    runnable& run_;
    platform::shown_activity on_thread_{&name_of_run, &run_};
};

runnable::~runnable() {
    if (!failure_ || failure_fetched_)
        return;
    tasks_log.report_handler_failure(
        name_.is_empty() ? unnamed_unchecked : named_unchecked, failure_,
        [&] { return failure_text(kind_, name(), ": failed without a caller check."); });
}

void runnable::run_begun(bool skip_body) {
    const ending at_the_end(*this);
    ended_state_->set_running_thread(platform::this_thread_id());
    const measurement measured(*this);
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
        tasks_log.report(log::severity::task_failed,
                         name_.is_empty() ? unnamed_failed : named_failed, failure,
                         [&] { return failure_text(kind_, name(), ": failed."); });
}

void runnable::end_run(platform::shown_activity& on_thread) noexcept {
    drop_body();
    platform::guarded([&] { leave_holders(on_thread); });
    on_thread.end();
    if (!ended_state_->is_ended())
        ended_state_->set_ended();
}

std::exception_ptr runnable::fetch_failure() {
    platform::scoped_lock inside(guard_);
    failure_fetched_ = true;
    return failure_;
}

} // namespace zel::tasklib
