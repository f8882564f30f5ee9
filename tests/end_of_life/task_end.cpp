// One way for a process to end while there are tasks per call: task_end SCENARIO.
// What has to hold in the end is checked by the exit handler that runs last.
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/failure_of.h"

#include <platform/process.h>

#include <iostream>

namespace {

using namespace zel;
using namespace zel::tasklib;

void require(bool condition, const std::string& what) {
    if (condition)
        return;
    std::cerr << "failed: " << what << '\n';
    std::_Exit(1);
}

platform::signal first_runs, work_is_left, released, never;

std::vector<std::shared_ptr<ended_state_ifc>> all; // tasks
const auto captured = std::make_shared<int>();     // by all tasks

// What a user kept until the end.
std::shared_ptr<task_processor_ifc> processor;
task<void> unsubmitted;

template <class Function>
void require_refusal(const std::string& text, const Function& use) {
    require(test::failure_of(use) == text, text);
}

void check_the_end() {
    for (const auto& state : all)
        require(state->is_ended(), "running tasks are waited for, the others canceled");
    require(captured.use_count() == 1, "nothing is left of them");
    const std::string gone = "Tasks module already destroyed";
    require_refusal(gone, &get_tasks_module);
    require_refusal("Task performance logger storage module already destroyed",
                    &get_performance_logger_storage_module);
    if (!processor)
        return;
    require_refusal(gone, [] { submit_or_cancel(unsubmitted.share(), *processor); });
    require(unsubmitted.wait({false, 0}), "a refused task has ended");
}

task<void> made(auto body) {
    auto t = make_task("", nullptr, [body, kept = captured] { body(); });
    all.push_back(t.share()->get_ended_state());
    return t;
}

void wait_in_vain() {
    first_runs.set();
    released.wait();
    never.wait(platform::milliseconds(100)); // an exit that does not wait is over by then
}

void must_not_run() {
    require(false, "a task that had not started is canceled");
}

void schedule(const task<void>& t, unbiased_clock::time_point when) {
    using at = basic_single_run_sch_params<unbiased_clock>;
    get_task_scheduler()->schedule(t.share(), get_task_processor(), std::make_shared<at>(when), 0);
}

// Running, stored, delayed and queued ones.
void leave_work() {
    processor = get_task_processor();
    unsubmitted = make_task("", nullptr, [] {});
    const auto queue = std::make_shared<task_queue>(1);
    store_or_cancel(made(wait_in_vain).share(), queue, nullptr, processor);
    first_runs.wait();
    store_or_cancel(made(must_not_run).share(), queue, nullptr, processor);
    schedule(made(must_not_run), unbiased_clock::now() + std::chrono::hours(1));
    schedule(made(must_not_run), unbiased_clock::time_point::max());
    // More than there will ever be threads: the last is still there when the end
    // comes, and its going lets the running ones end.
    for (int i = 0; i < 600; ++i)
        processor->submit(made(wait_in_vain).share(), 0);
    const std::shared_ptr<void> releasing(nullptr, [](auto) { released.set(); });
    processor->submit(made([releasing] { must_not_run(); }).share(), 0);
}

int exit_with_work() {
    leave_work();
    return 0;
}

int exit_inside_a_task() {
    const auto exiting = make_task("", nullptr, [] {
        work_is_left.wait();
        std::exit(0);
    });
    get_task_processor()->submit(exiting.share(), 0);
    leave_work();
    work_is_left.set();
    return never.wait();
}

// Its threads are not there, and its tasks are those of its parent.
int exit_of_a_forked_child() {
    const std::shared_ptr<void> parents(nullptr, [parent = platform::process_id()](auto) {
        require(platform::process_id() == parent, "a child leaves its parent's tasks alone");
    });
    schedule(make_task("", nullptr, [parents] {}), unbiased_clock::time_point::max());
    const auto running = make_task("", nullptr, [] {
        first_runs.set();
        released.wait();
    });
    get_task_processor()->submit(running.share(), 0);
    first_runs.wait();
    require(platform::holds_in_a_child([]() -> bool { std::exit(0); }),
            "a child ends without the threads");
    released.set();
    return 0;
}

} // namespace

int main(int, char** argv) {
    std::atexit(&check_the_end);
    const std::string scenario = argv[1];
    return scenario == "exit_with_work"       ? exit_with_work()
           : scenario == "exit_inside_a_task" ? exit_inside_a_task()
                                              : exit_of_a_forked_child();
}
