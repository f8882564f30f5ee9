// What a run does with its thread, and what is told of it.
#include "framework/module_interface/version_check.h"
#include "generic/tasklib/src/tasks/task_support_test.h"

#include <platform/clocks.h>
#include <platform/credentials.h>
#include <platform/process.h>
#include <platform/thread_description.h>
#include <platform/thread_priority.h>

#include <sstream>

namespace zel::tasklib::test {
namespace {

using namespace platform;

TEST(TaskRun, ShowsOnItsThreadWhatItIsInsideOf) {
    texts seen;
    const auto look = [&] { seen.push_back(thread_description(this_thread_id())); };
    const auto inner = make_task("inner", nullptr, look);
    const auto outer = make_task("outer", nullptr, [&] {
        inner.share()->run(false);
        look();
        throw 1; // is put right all the same
    });
    watched_thread([&] {
        outer.share()->run(false);
        look();
    }).join();
    EXPECT_EQ(seen, (texts{"outer - inner", "outer", ""}));
    EXPECT_THROW(outer.get(), int);
}

TEST(TaskRun, IsMadeUrgentByCancelButNotWhatItsThreadDoesAfterwards) {
    signal running, go_on, ended, leave;
    thread_id thread = no_thread;
    const int low = lower_priority();
    sample task([&] {
        set_thread_priority(thread = this_thread_id(), low);
        running.set();
        go_on.wait();
    });
    sample other;
    watched_thread runner([&] {
        task.share()->run(false);
        other.share()->run(false);
        set_thread_priority(thread, low);
        ended.set();
        leave.wait();
    });
    EXPECT_TRUE(running.comes());
    task.handle.cancel();
    const auto while_it_ran = thread_priority(thread);
    EXPECT_EQ(while_it_ran, raise_to_normal_priority(thread) ? 0 : low) << "as far as is allowed";
    go_on.set();
    EXPECT_TRUE(ended.comes());
    other.handle.cancel();
    EXPECT_EQ(thread_priority(thread), low);
    leave.set();
}

TEST(TaskRun, EndsEveryImpersonationThatABodyLeavesBehindAndReportsTheFirst) {
    const report_capture reports;
    int bodies = 0;
    const auto act_for_the_own_user = [&] {
        EXPECT_FALSE(is_impersonating());
        EXPECT_EQ(impersonate(own_identity()), 0);
        bodies += is_impersonating();
    };
    const auto queue = std::make_shared<task_queue>(1);
    for (int i = 0; i < 6; ++i)
        queue->push(make_task("class x::struct y::z", nullptr, act_for_the_own_user).share());
    EXPECT_TRUE(submit_run_queue_tasks(nullptr, get_task_processor(), queue).wait(in_time));
    EXPECT_EQ(bodies, 6);
    static bool is_first = true; // in the process, in which tests may be repeated
    EXPECT_EQ(*reports.told, texts(std::exchange(is_first, false) ? 1 : 0,
                                   "Still Impersonated (self-impersonated)- x. y.z"));
    act_for_the_own_user();
    make_task("", nullptr, [] {}).share()->run(false);
    EXPECT_TRUE(is_impersonating()) << "it was so before";
    revert_to_self();
}

// Clocks that go on by a tick whenever they are read.
std::atomic<std::int64_t> counter{0}, cycles{0};

struct listener : performance_logger_ifc {
    void log_task_performance(std::uint32_t kind, const std::string& name, double elapsed,
                              double processor, const zel::perfstats::Data* grown) override {
        if (name.empty())
            throw std::runtime_error("cannot");
        told << kind << name << ' ' << elapsed << ' ' << processor;
        EXPECT_TRUE(grown->user_time + grown->kernel_time > 0 && grown->page_faults > 0 &&
                    grown->voluntary_switches > 0);
    }
    std::ostringstream told;
};

struct newer_listener final : listener {
    std::int32_t GetInterfaceVersion() const override { return 5; }
};

TEST(TaskRun, IsMeasuredAndReportedWhileSomebodyListens) {
    using ticks = clock_reading;
    const clock_replacement clocks[] = {
        {clock::performance_counter, [] { return ticks(++counter); }},
        {clock::performance_frequency, [] { return ticks(1); }},
        {clock::thread_cycles, [] { return ticks(++cycles); }},
        {clock::thread_cycle_rate, [] { return ticks(2); }}};
    const zel::test::log_capture log(0);
    const auto storage = get_performance_logger_storage_module();
    const auto logger = std::make_shared<listener>();
    const auto run = [](const char* name, std::function<void()> body) {
        make_task(name, nullptr, std::move(body)).share()->run(false);
    };
    const auto work = [&] { // until all figures have grown
        std::vector<std::vector<char>> kept;
        const auto begin = storage->begin_thread_statistics();
        for (auto now = begin;
             now.user_time == begin.user_time || now.page_faults == begin.page_faults ||
             now.voluntary_switches == begin.voluntary_switches;
             now = storage->end_thread_statistics()) {
            kept.emplace_back(10'000'000, 'x');
            sleep_for(milliseconds(1)); // a voluntary switch
        }
    };
    cycles = 0;
    run("begun before", [&] { storage->set_performance_logger(logger); });
    EXPECT_THROW(storage->set_performance_logger(std::make_shared<newer_listener>()),
                 zel::WrongIfcVersion);
    EXPECT_EQ(storage->get_performance_logger(), logger) << "the one before stays";
    storage->set_measurement(false);
    run("switched off", [] { EXPECT_FALSE(is_measuring()); });
    EXPECT_EQ(cycles, 0) << "nothing is measured in vain";
    storage->set_measurement(true);
    run("heard", work);
    run(queue_runner_name, [] {});
    run("", [] {});
    run("removed meanwhile", [&] { storage->set_performance_logger(nullptr); });
    EXPECT_FALSE(is_measuring());
    EXPECT_EQ(logger.use_count(), 1);
    EXPECT_EQ(logger->told.str(), "2heard 1 0.5");
    EXPECT_EQ(records(log),
              texts{"tasks 7 66 Error while stopping log_performance_wrapper\ncannot"});
}

} // namespace
} // namespace zel::tasklib::test
