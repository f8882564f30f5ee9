#include "generic/tasklib/src/tasks/task_support_test.h"
#include "tests/support/scarce_memory.h"

#include <platform/clocks.h>
#include <platform/process.h>

#include <future>
#include <latch>
#include <optional>

namespace zel::tasklib::test {
namespace {

constexpr auto report = task_container_low_level_ifc::report_timeout;

// Lets a test into what a container wants from its tasks.
struct open_task final : detail::task_with_value<void> {
    open_task(std::string name, const std::shared_ptr<task_container_low_level_ifc>& container)
        : task_with_value<void>(std::move(name), 0, container) {}
    bool cancel() override { return on_cancel(), task_with_value<void>::cancel(); }
    std::shared_ptr<ended_state_ifc> get_ended_state() const override {
        on_asked();
        return shown ? shown : task_with_value<void>::get_ended_state();
    }
    void run_body() override {}
    void drop_body() noexcept override {}

    std::function<void()> on_cancel, on_asked = [] {};
    std::shared_ptr<ended_state_ifc> shown;
    std::shared_ptr<void> held;
};

class TaskContainer : public testing::Test {
protected:
    std::shared_ptr<open_task> add(std::string name) {
        auto made = std::make_shared<open_task>(name, container);
        made->on_cancel = [this, name] { canceled += name; };
        container->add(made);
        return made;
    }

    std::string canceled;
    std::shared_ptr<task_container> owner = std::make_shared<task_container>("");
    std::shared_ptr<task_container_low_level_ifc> container = owner->get_low_level_container();
    std::shared_ptr<task_processor_ifc> processor = get_task_processor();
    report_capture reports;
};

TEST_F(TaskContainer, CancelsItsTasksOnceAndLaterOnesWhenTheyCome) {
    EXPECT_TRUE(container->wait(at_once, report)) << "there is nothing to wait for";
    const auto a = add("a"), b = add("b"), c = add("c"), d = add("d");
    b->run(false);
    EXPECT_TRUE(a->try_claim()); // about to start: stays
    container->end();
    const auto late = add("e");
    container->end();
    EXPECT_EQ(canceled, "adce") << "the last one moved into the gap";
    EXPECT_FALSE(container->wait(at_once, 0));
    a->run(false);
    EXPECT_TRUE(container->wait(at_once, report));
}

TEST_F(TaskContainer, NamesWhatItHoldsWhenTheTimeIsOver) {
    const auto b = add("b"), c = add("c"), a = add("a");
    EXPECT_FALSE(container->wait({false, -1}, 0));
    EXPECT_FALSE(container->wait(at_once, report));
    a->run(false);
    b->run(false);
    bool stays = true;
    c->on_asked = [&] { // leaves while it is waited for, and has not yet ended
        if (std::exchange(stays, false))
            container->remove(c);
    };
    EXPECT_FALSE(container->wait(at_once, report));
    EXPECT_EQ(*reports.told, (texts{"task container timed out: a, b, c", "ended state timed out"}));
    c->run(false);
    EXPECT_TRUE(container->wait(at_once, report));
}

// Every wait takes 40 ms of the replaced clock.
struct slow_state final : ended_state_ifc {
    void set_ended() override {}
    bool is_ended() const override { return false; }
    bool wait_ended(threading::universal_timeout timeout) override {
        waits.push_back(timeout.microseconds);
        ticks += 400'000;
        return timeout.microseconds > 0;
    }
    platform::thread_id running_thread() const override { return platform::no_thread; }
    void set_running_thread(platform::thread_id) override {}

    static inline std::vector<std::int64_t> waits;
    static inline std::atomic<std::int64_t> ticks{0};
};

TEST_F(TaskContainer, WaitsForAllEndedStatesWithinOneTime) {
    const platform::clock_replacement clock(
        platform::clock::unbiased_time, [] { return platform::clock_reading(slow_state::ticks); });
    const auto first = add("first"), second = add("second"), changes = add("changes");
    for (const auto& leaving : {first, second}) {
        leaving->shown = std::make_shared<slow_state>();
        container->remove(leaving);
    }
    // Shows another one after the wait, which is waited for as well.
    changes->on_asked = [&] { changes->shown = std::make_shared<slow_state>(); };
    EXPECT_FALSE(container->wait({false, 100'000}, 0));
    EXPECT_TRUE(container->wait({false, 1}, 0)) << "those that have ended are forgotten";
    EXPECT_EQ(std::exchange(slow_state::waits, {}),
              (std::vector<std::int64_t>{100'000, 60'000, 20'000, 0, 1}));
}

TEST_F(TaskContainer, IsWaitedForFromInsideOfItsTasksUntilTheOthersHaveEnded) {
    std::atomic<int> waited{0};
    const auto wait_inside = [&] {
        signal go_on;
        submit_or_cancel(make_task("other", container, [&] { go_on.wait(); }).share(), *processor);
        EXPECT_FALSE(container->wait(at_once, 0));
        go_on.set();
        waited += container->wait(in_time, 0);
    };
    const auto nested = [&] {
        processor->execute(make_task("inner", container, wait_inside).share(), true);
    };
    processor->execute(make_task("outer", container, nested).share(), true);
    // Inside of the runner, which belongs to the container as well.
    store_or_cancel(make_task("queued", container, wait_inside).share(),
                    std::make_shared<task_queue>(1), owner, processor);
    EXPECT_TRUE(container->wait(in_time, 0));
    EXPECT_EQ(waited, 2);
}

TEST_F(TaskContainer, HoldsATaskUntilItsCapturesAreGone) {
    for (const bool is_canceled : {false, true}) {
        const auto look = [&](int*) { // on a thread that is inside of no task
            EXPECT_FALSE(std::async([&] { return container->wait(at_once, report); }).get());
        };
        const auto task =
            basic(make_task("task", container, [held = std::shared_ptr<int>(nullptr, look)] {}));
        is_canceled ? void(task->cancel()) : processor->execute(task, true);
        EXPECT_TRUE(container->wait(at_once, report));
    }
    EXPECT_EQ(*reports.told, texts(2, "task container timed out: task"));
}

TEST_F(TaskContainer, IsLeftByItsTasksAlsoWithoutMemory) {
    const std::vector<std::shared_ptr<open_task>> tasks = {add("a"), add("b"), add("c")};
    auto next = tasks.begin();
    bool has_thrown = false;
    const auto leave = [&] {
        for (; next != tasks.end(); ++next)
            has_thrown = platform::guarded([&] { container->remove(*next); }) || has_thrown;
    };
    zel::test::failures_of(leave, zel::test::shortage::lasting);
    EXPECT_FALSE(has_thrown);
    EXPECT_FALSE(container->wait(at_once, report)) << "they have not ended";
    EXPECT_EQ(*reports.told, texts{"ended state timed out"});
    for (const auto& task : tasks)
        task->run(true);
    EXPECT_TRUE(container->wait(at_once, report));
}

TEST_F(TaskContainer, ReleasesTasksThatHaveLeftWithoutItsLock) {
    auto looks = add("looks");
    const auto look = [&](int*) {
        EXPECT_FALSE(std::async([&] { return container->wait(at_once, 0); }).get());
    };
    looks->held = std::shared_ptr<int>(nullptr, look);
    container->remove(looks);
    std::exchange(looks, nullptr)->run(true);
    const auto other = add("other");
    container->remove(other);
    other->run(true);
}

// A container of somebody else, which knows tasks by their interface only.
struct plain_container final : task_container_low_level_ifc {
    void add(const shared_task& task) override { held = task; }
    void remove(const shared_task& task) override {
        EXPECT_EQ(task, held);
        EXPECT_FALSE(task->get_ended_state()->is_ended());
        held = nullptr;
    }
    void end() override {}
    bool wait(threading::universal_timeout, std::int32_t) override { return true; }
    shared_task held;
};

TEST_F(TaskContainer, OfAnotherKindIsLeftBeforeTheEndIsTold) {
    const auto other = std::make_shared<plain_container>();
    const auto task = make_task("", other, [&] { EXPECT_EQ(other->held->get_container(), other); });
    container->add(task.share()); // a second one
    processor->execute(task.share(), true);
    EXPECT_TRUE(task.wait(at_once) && !other->held && !task.share()->get_container());
}

TEST_F(TaskContainer, MayGoBeforeItsTasksAndWhileTheyLeaveIt) {
    for (int round = 0; round < 300; ++round) {
        auto going = std::make_shared<low_level_task_container>("");
        const auto stays = make_task("", going, [] {}), leaves = make_task("", going, [] {});
        std::latch both(2);
        watched_thread runner([&] {
            both.arrive_and_wait();
            leaves.share()->run(false);
        });
        const auto state = leaves.share()->get_ended_state();
        both.arrive_and_wait();
        for (int pause = 0; pause < round % 30; ++pause)
            platform::pause_processor();
        going.reset();
        EXPECT_EQ(stays.share()->get_container(), nullptr);
        stays.share()->run(false);
        EXPECT_TRUE(state->wait_ended(in_time) && stays.wait(at_once));
    }
}

// A container that is asked for itself while its task ends.
struct asked_holder final : task_holder_ifc {
    explicit asked_holder(shared_task held) : task(std::move(held)) {}
    std::shared_ptr<task_container_low_level_ifc> container() noexcept override {
        runner.emplace([this] { task->run(false); });
        EXPECT_TRUE(runner->falls_asleep()) << "the holder may have gone meanwhile";
        return nullptr;
    }
    void let_go_at_end(task_ifc&, ended_state_ifc& state) override { state.set_ended(); }

    shared_task task;
    std::optional<watched_thread> runner;
};

// Its tasks enter another container while they leave it.
struct passing_container final : task_container_low_level_ifc {
    void add(const shared_task&) override {}
    void remove(const shared_task& task) override { next->add(task); }
    void end() override {}
    bool wait(threading::universal_timeout, std::int32_t) override { return true; }
    std::shared_ptr<low_level_task_container> next = std::make_shared<low_level_task_container>("");
};

TEST_F(TaskContainer, GoesWithTasksThatEnteredItTwiceOrTooLate) {
    auto going = std::make_shared<low_level_task_container>("");
    const auto passing = std::make_shared<passing_container>();
    const auto twice = make_task("", going, [] {}), ended = make_task("", nullptr, [] {}),
               late = make_task("", passing, [] {});
    going->add(twice.share());
    for (const auto& task : {twice, ended, late})
        task.share()->run(false);
    going->add(ended.share());
    std::weak_ptr<void> gone = going, gone_too = passing->next;
    passing->next.reset();
    going.reset();
    EXPECT_TRUE(gone.expired() && gone_too.expired() && late.wait(at_once));
}

TEST_F(TaskContainer, IsNotLeftWhileItsTaskIsAskedForIt) {
    asked_holder holder(make_task("", nullptr, [] {}).share());
    query<placed_task_ifc>(holder.task->cancellation())->enter_holder(holder);
    holder.task->get_container();
    EXPECT_TRUE(holder.task->get_ended_state()->wait_ended(in_time));
}

TEST_F(TaskContainer, EndsWithACanceledTaskThatAloneHeldIt) {
    const auto last = make_task("", container, [held = std::move(owner)] {});
    container.reset();
    last.cancel();
    EXPECT_TRUE(last.wait(at_once));
}

TEST_F(TaskContainer, EndsWithAFollowUpThatAloneHeldIt) {
    for (const bool is_claimed : {false, true}) { // goes when it is canceled, or forgotten
        owner = std::make_shared<task_container>("");
        const auto first = make_task("", owner->get_low_level_container(), [] {});
        auto next = basic(make_task("", nullptr, [held = std::exchange(owner, nullptr)] {}));
        EXPECT_TRUE(!is_claimed || next->try_claim());
        basic(first)->add_follow_up(std::exchange(next, nullptr), nullptr);
        processor->submit(first.share(), 0);
        ASSERT_TRUE(first.wait(in_time)) << "waits for itself";
    }
}

} // namespace
} // namespace zel::tasklib::test
