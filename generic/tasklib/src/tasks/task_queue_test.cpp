#include "generic/tasklib/src/tasks/task_support_test.h"
#include "tests/support/scarce_memory.h"

#include <platform/process.h>

namespace zel::tasklib::test {
namespace {

class TaskQueue : public testing::Test {
protected:
    std::shared_ptr<basic_task> make(std::function<void()> body) {
        return basic(make_task("queued", owner->get_low_level_container(), std::move(body)));
    }
    bool push(std::function<void()> body) { return queue->push(make(std::move(body))); }
    void store(std::function<void()> body) {
        store_or_cancel(make(std::move(body)), queue, owner, processor);
    }

    std::shared_ptr<task_processor_ifc> processor = get_task_processor();
    std::shared_ptr<waiting_room> room = std::make_shared<waiting_room>();
    std::shared_ptr<task_queue> queue = std::make_shared<task_queue>(1);
    std::shared_ptr<task_container> owner = std::make_shared<task_container>("");
};

TEST_F(TaskQueue, AsksForRunnersUntilItHasEnoughAndAgainWhenTheyHaveLeft) {
    std::string ran;
    queue->run_all_stored_tasks(processor); // nothing is stored: nobody becomes a runner
    EXPECT_TRUE(push([&] { ran += 'a'; }));
    EXPECT_TRUE(push([&] {
        ran += 'b';
        EXPECT_FALSE(push([&] { ran += 'd'; }));
        queue->run_all_stored_tasks(processor); // one too many
        ran += 'c';
    })) << "no runner has come so far";
    queue->run_all_stored_tasks(processor);
    EXPECT_EQ(ran, "abcd");
    queue = std::make_shared<task_queue>(2);
    push([&] { EXPECT_TRUE(push([] {})) << "a second one may come"; });
    queue->run_all_stored_tasks(processor);
    EXPECT_TRUE(push([] {}));
}

TEST_F(TaskQueue, IsRunWithoutMemory) {
    int ran = 0;
    push([&] { ++ran; });
    const auto run = [&] { EXPECT_NO_THROW(queue->run_all_stored_tasks(processor)); };
    zel::test::failures_of(run, zel::test::shortage::lasting);
    EXPECT_EQ(ran, 1);
    owner->end_and_wait({});
}

TEST_F(TaskQueue, TellsItsLengthAndRefusesATaskInsteadOfWaitingForRoom) {
    auto* const room_of_it = room_of(*queue);
    ASSERT_TRUE(room_of_it);
    std::string outcomes;
    push([&] { // the runner is there, and has taken this one
        for (int i = 0; i < 1026; ++i)
            outcomes += std::to_string(static_cast<int>(room_of_it->try_push(make([] {}))));
        EXPECT_EQ(room_of_it->length(), 1025u);
    });
    EXPECT_EQ(room_of_it->length(), 1u);
    queue->run_all_stored_tasks(processor);
    EXPECT_EQ(outcomes, std::string(1025, '1') + '0');
    EXPECT_EQ(room_of_it->length(), 0u);
    EXPECT_EQ(room_of_it->try_push(make([] {})), push_outcome::needs_runner);
    owner->end_and_wait({});
}

TEST_F(TaskQueue, ForgetsNoTaskThatComesJustWhenTheRunnerLeaves) {
    for (int round = 0; round < 4000; ++round) {
        for (int i = 0; i < round % 1000; ++i)
            platform::pause_processor(); // the runner lingers for a while
        std::atomic<bool> ran{false};
        store([&] { ran = true; });
        const auto began = std::chrono::steady_clock::now();
        while (!ran) // awake, to come in time
            ASSERT_LT(std::chrono::steady_clock::now() - began, platform::patience) << round;
    }
}

TEST_F(TaskQueue, SubmitsOneRunnerForAllThatIsStoredUnlessItWillNotCome) {
    int ran = 0;
    const auto store_here = [&] { store_or_cancel(make([&] { ++ran; }), queue, owner, room); };
    room->executes = [&](const auto& task) { processor->execute(task, true); };
    room->is_closed = true;
    EXPECT_THROW(store_here(), exceptions::fatal);
    room->is_closed = false;
    for (int i = 0; i < 3; ++i)
        store_here();
    ASSERT_EQ(room->tasks.size(), 1u);
    room->tasks.front()->cancellation().cancel();
    for (int i = 0; i < 3; ++i)
        store_here();
    ASSERT_EQ(room->tasks.size(), 1u) << "in place of the canceled one";
    room->tasks.front()->run(false);
    EXPECT_EQ(ran, 6);
    store_here();
    EXPECT_EQ(room->tasks.size(), 2u);
    owner->end_and_wait({});
}

TEST_F(TaskQueue, SlowsProducersWhileItIsFullUnlessTheyAreCanceled) {
    const auto payload = std::make_shared<int>();
    sample refused, canceled([&] { store_or_cancel(refused.share(), queue, owner, processor); });
    std::vector<std::shared_ptr<basic_task>> stored;
    while (stored.size() < 1025)
        stored.push_back(make([payload] {}));
    sample filling([&] {
        filling.handle.cancel(); // a wait would throw
        for (const auto& task : std::exchange(stored, {}))
            queue->push(task);
    });
    processor->execute(filling.share(), true);
    EXPECT_NO_THROW(filling.handle.get());
    signal pushed;
    watched_thread first([&] { processor->execute(canceled.share(), true); });
    watched_thread second([&] {
        push([payload] {});
        pushed.set();
    });
    EXPECT_TRUE(first.falls_asleep() && second.falls_asleep());
    canceled.handle.cancel();
    EXPECT_THROW(canceled.handle.get(), canceled_exception);
    EXPECT_TRUE(refused.is_over() && refused.share().use_count() == 2) << "is not stored";
    room->executes = [&](const auto&) {
        // Who is not let on goes on after 5 s.
        EXPECT_TRUE(pushed.wait(milliseconds(4000))) << "there is room with the first one out";
        throw 1;
    };
    EXPECT_THROW(queue->run_all_stored_tasks(room), int);
    queue.reset();
    owner->end_and_wait({});
    EXPECT_EQ(payload.use_count(), 1);
}

TEST_F(TaskQueue, GoesOnAfterWhatLeavesTheExecutionOfATask) {
    const zel::test::log_capture log(3);
    int executed = 0, ran = 0;
    room->executes = [&](const auto& task) {
        if (++executed == 1)
            throw std::runtime_error("why");
        if (executed == 2)
            throw 2; // nobody expects this here
        processor->execute(task, true);
    };
    for (int i = 0; i < 3; ++i)
        push([&] { ++ran; });
    const auto runner = submit_run_queue_tasks(nullptr, room, queue);
    room->tasks.at(0)->run(false);
    EXPECT_THROW(runner.get(), int);
    ASSERT_EQ(room->tasks.size(), 2u) << "another runner has to come";
    room->tasks[1]->run(false);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(records(log), texts{"tasks 5 25 zel::tasklib::task_queue::run_all_stored_tasks - "
                                  "unexpected exception.\nwhy"});
    EXPECT_TRUE(push([] {})) << "no runner has stayed behind";
    owner->end_and_wait({});
}

TEST_F(TaskQueue, SaysThatNobodyComesAfterARunnerThatWasEnded) {
    const zel::test::log_capture log(5);
    room->executes = [&](const auto&) {
        room->is_closed = true;
        throw 2;
    };
    push([] {});
    push([] {});
    const auto runner = submit_run_queue_tasks(nullptr, room, queue);
    room->tasks.at(0)->run(false);
    EXPECT_THROW(runner.get(), int);
    const auto said = records(log);
    ASSERT_EQ(said.size(), 1u);
    EXPECT_TRUE(said[0].starts_with("tasks 5 26 No thread takes over")) << said[0];
    EXPECT_NE(said[0].find("\nclosed"), std::string::npos) << said[0];
    EXPECT_TRUE(push([] {})) << "the next push brings one";
    owner->end_and_wait({});
}

TEST_F(TaskQueue, KeepsTheOuterRunnerOfAThreadWhoseInnerOneIsUnwound) {
    queue = std::make_shared<task_queue>(2);
    room->executes = [](const auto&) { throw 1; };
    push([&] {
        push([] {});
        EXPECT_THROW(queue->run_all_stored_tasks(room), int);
        const int expecting = 0;
        EXPECT_TRUE(queue->needs_runner(&expecting));
        queue->runner_submitted(&expecting);
        EXPECT_FALSE(queue->needs_runner(&expecting)) << "the outer one is still there";
        queue->runner_came(&expecting);
    });
    queue->run_all_stored_tasks(processor);
    owner->end_and_wait({});
}

TEST_F(TaskQueue, GoesOnOnAnotherThreadWhenATaskEndsItsOwn) {
    signal next;
    push([] { platform::end_this_thread(); });
    push([&] { next.set(); });
    submit_run_queue_tasks(owner, processor, queue);
    EXPECT_TRUE(next.comes());
    EXPECT_TRUE(owner->get_low_level_container()->wait(in_time, 0));
    EXPECT_TRUE(push([] {})) << "no runner has stayed behind";
    owner->end_and_wait({});
}

} // namespace
} // namespace zel::tasklib::test
