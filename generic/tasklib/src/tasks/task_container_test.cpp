#include "generic/tasklib/src/tasks/task_container.h"

#include "generic/tasklib/src/tasks/task_support_test.h"

#include <platform/clocks.h>

#include <future>
#include <latch>

namespace zel::tasklib::test {
namespace {

using texts = std::vector<std::string>;
constexpr auto report = task_container_low_level_ifc::report_timeout;

// Lets a test into what a container wants from its tasks.
class open_task final : public detail::task_with_value<void> {
public:
    explicit open_task(std::string name) : task_with_value<void>(std::move(name), 0) {}

    bool cancel() override {
        on_cancel();
        return task_with_value<void>::cancel();
    }
    std::shared_ptr<ended_state_ifc> get_ended_state() const override {
        on_asked();
        return shown ? shown : task_with_value<void>::get_ended_state();
    }

    std::function<void()> on_cancel = [] {};
    std::function<void()> on_asked = [] {};
    std::shared_ptr<ended_state_ifc> shown;

private:
    void run_body() override {}
    void drop_body() noexcept override {}
};

class TaskContainer : public testing::Test {
protected:
    std::shared_ptr<open_task> add(std::string name) {
        auto made = std::make_shared<open_task>(name);
        made->on_cancel = [this, name] { canceled += name; };
        made->enter(container);
        return made;
    }

    std::string canceled;
    std::shared_ptr<task_container> owner = std::make_shared<task_container>("");
    std::shared_ptr<task_container_low_level_ifc> container = owner->get_low_level_container();
    report_capture reports;
};

TEST_F(TaskContainer, CancelsItsTasksOnceAndLaterOnesWhenTheyCome) {
    EXPECT_TRUE(container->wait(at_once, report)) << "there is nothing to wait for";
    const texts names = {"a", "b", "c", "d"};
    std::vector<std::shared_ptr<open_task>> tasks;
    for (const auto& name : names)
        tasks.push_back(add(name));
    tasks[1]->run(false);
    container->end();
    EXPECT_EQ(canceled, "adc") << "the last one has moved into the gap";
    const auto late = add("e");
    container->end();
    EXPECT_EQ(canceled, "adce");
    EXPECT_TRUE(container->wait(at_once, report));
    EXPECT_TRUE(reports.texts().empty());
}

TEST_F(TaskContainer, NamesWhatItHoldsWhenTheTimeIsOver) {
    const auto b = add("b"), c = add("c"), a = add("a");
    EXPECT_FALSE(container->wait({false, -1}, 0));
    EXPECT_FALSE(container->wait(at_once, report));
    for (const auto& ended : {a, b})
        ended->run(false);
    bool stays = true;
    c->on_asked = [&] { // leaves while it is waited for, and has not yet ended
        if (std::exchange(stays, false))
            container->remove(c);
    };
    EXPECT_FALSE(container->wait(at_once, report));
    EXPECT_EQ(reports.texts(),
              (texts{"task container timed out: a, b, c", "ended state timed out"}));
    c->run(false);
    EXPECT_TRUE(container->wait(at_once, report));
}

std::atomic<std::int64_t> ticks{0};

// Takes 40 ms of the replaced clock.
struct slow_state final : ended_state_ifc {
    explicit slow_state(std::vector<std::int64_t>& waits) : waits_(waits) {}
    void set_ended() override {}
    bool is_ended() const override { return false; }
    bool wait_ended(threading::universal_timeout timeout) override {
        waits_.push_back(timeout.microseconds);
        ticks += 400'000;
        return timeout.microseconds > 0;
    }
    platform::thread_id running_thread() const override { return platform::no_thread; }
    void set_running_thread(platform::thread_id) override {}

private:
    std::vector<std::int64_t>& waits_;
};

TEST_F(TaskContainer, WaitsForAllEndedStatesWithinOneTime) {
    const platform::clock_replacement clock(platform::clock::unbiased_time,
                                            [] { return std::optional(ticks.load()); });
    std::vector<std::int64_t> waits;
    const auto first = add("first"), second = add("second"), changes = add("changes");
    for (const auto& leaving : {first, second}) {
        leaving->shown = std::make_shared<slow_state>(waits);
        container->remove(leaving);
    }
    // Another one whenever it is asked: after the wait it has to be waited for too.
    changes->on_asked = [&] { changes->shown = std::make_shared<slow_state>(waits); };
    EXPECT_FALSE(container->wait({false, 100'000}, 0));
    EXPECT_EQ(waits, (std::vector<std::int64_t>{100'000, 60'000, 20'000, 0}));
    EXPECT_TRUE(container->wait({false, 100'000}, 0)) << "those that have ended are forgotten";
}

TEST_F(TaskContainer, IsWaitedForFromInsideOfItsTasksUntilTheOthersHaveEnded) {
    const auto processor = get_task_processor();
    std::atomic<int> waited{0};
    const auto wait_inside = [&] {
        signal go_on;
        submit_or_cancel(make_task("other", container, [&] { go_on.wait(); }).share(), *processor);
        EXPECT_FALSE(container->wait(at_once, 0));
        go_on.set();
        waited += container->wait(in_time, 0);
    };
    processor->execute(make_task("alone", container, wait_inside).share(), true);
    const auto nested = [&] {
        processor->execute(make_task("inner", container, wait_inside).share(), true);
    };
    processor->execute(make_task("outer", container, nested).share(), true);
    // Inside of the runner, which belongs to the container as well.
    store_or_cancel(make_task("queued", container, wait_inside).share(),
                    std::make_shared<task_queue>(1), owner, processor);
    EXPECT_TRUE(container->wait(in_time, 0));
    EXPECT_EQ(waited, 3);
}

TEST_F(TaskContainer, HoldsATaskUntilItsCapturesAreGone) {
    for (const bool is_canceled : {false, true}) {
        const auto look = [&](int*) { // on a thread that is inside of no task
            EXPECT_FALSE(std::async([&] { return container->wait(at_once, report); }).get());
        };
        const auto made =
            make_task("task", container, [held = std::shared_ptr<int>(nullptr, look)] {});
        if (is_canceled)
            made.cancel();
        else
            get_task_processor()->execute(made.share(), true);
        EXPECT_TRUE(container->wait(at_once, report));
    }
    EXPECT_EQ(reports.texts(), texts(2, "task container timed out: task"));
}

TEST_F(TaskContainer, IsDrainedByItsDestruction) {
    const auto payload = std::make_shared<int>();
    signal running, go_on;
    const auto runs = make_task("runs", container, [&, payload] {
        running.set();
        go_on.wait();
    });
    submit_or_cancel(runs.share(), *get_task_processor());
    const auto pending = make_task("pending", container, [payload] {});
    EXPECT_TRUE(running.comes());
    watched_thread destroyer([&] {
        owner.reset();
        EXPECT_EQ(payload.use_count(), 1);
    });
    EXPECT_TRUE(destroyer.falls_asleep());
    EXPECT_TRUE(runs.share()->is_canceled() && pending.wait(at_once));
    go_on.set();
    destroyer.join();
}

TEST(TaskContainerRace, LeavesNoTaskBehindThatIsAddedOrEndsWhileItIsEndedAndWaitedFor) {
    const auto processor = get_task_processor();
    for (int round = 0; round < 300; ++round) {
        const auto payload = std::make_shared<int>();
        const auto container = std::make_shared<low_level_task_container>("");
        std::latch start(3);
        const auto add = [&] {
            start.arrive_and_wait();
            for (int i = 0; i < 4; ++i)
                submit_or_cancel(make_task("", container, [payload] {}).share(), *processor);
        };
        std::jthread first(add), second(add);
        start.arrive_and_wait();
        for (int i = 0; i < round % 4; ++i)
            EXPECT_TRUE(container->wait(in_time, 0));
        container->end();
        EXPECT_TRUE(container->wait(in_time, 0));
        first.join();
        second.join();
        EXPECT_TRUE(container->wait(in_time, 0));
        EXPECT_EQ(payload.use_count(), 1);
    }
}

} // namespace
} // namespace zel::tasklib::test
