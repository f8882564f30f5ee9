#include "generic/tasklib/src/tasks/task_support_test.h"

#include <platform/process.h>

#include <deque>
#include <latch>

namespace zel::tasklib::test {
namespace {

TEST(Task, RunsOnceOrIsCanceledWhicheverComesFirst) {
    const auto processor = get_task_processor();
    const auto submit = [&](const shared_task& t) { submit_or_cancel(t, *processor); };
    for (int round = 0; round < 20; ++round) {
        std::deque<sample> tasks(200);
        {
            std::latch start(6);
            const auto with_each = [&](auto action) {
                return std::jthread([&, action] {
                    start.arrive_and_wait();
                    for (auto& task : tasks)
                        action(task);
                });
            };
            const auto claim = [](sample& t) {
                t.claims += t.share()->try_claim();
                t.share()->run(false);
            };
            const auto one = with_each(claim), two = with_each(claim);
            const auto submitter = with_each([&](sample& t) { submit(t.share()); });
            const auto runner = with_each([&](sample& t) { processor->execute(t.share(), true); });
            const auto canceler = with_each([&](sample& t) {
                round % 3 == 0 ? t.container->end() : void(t.handle.cancel());
                submit(make_task("", t.container, [held = t.payload] {}).share());
            });
            const auto waiter =
                with_each([&](sample& t) { EXPECT_TRUE(t.container->wait(in_time, 0)); });
        }
        for (auto& task : tasks) {
            EXPECT_TRUE(task.container->wait(in_time, 0) && task.is_over());
            EXPECT_TRUE(task.bodies <= 1 && task.claims <= 1);
        }
    }
}

TEST(Task, IsEndedByCancelBeforeItsStartWhereverItIsKept) {
    const auto room = std::make_shared<waiting_room>();
    const auto queue = std::make_shared<task_queue>(1);
    const auto never = std::make_shared<basic_single_run_sch_params<unbiased_clock>>(
        unbiased_clock::time_point::max());
    const std::vector<std::function<void(const shared_task&)>> places = {
        [](const auto&) {}, [&](const auto& t) { room->submit(t, 0); },
        [&](const auto& t) { get_task_scheduler()->schedule(t, room, never, 0); },
        [&](const auto& t) { queue->push(t); }};
    for (const auto& put : places) {
        sample task;
        put(task.share());
        EXPECT_FALSE(task.handle.cancel());
        EXPECT_TRUE(task.is_over());
        EXPECT_EQ(task.share().use_count(), &put == &places.back() ? 3 : 2)
            << "only a queue keeps the task itself";
        queue->run_all_stored_tasks(get_task_processor()); // passes it over
        EXPECT_TRUE(task.handle.cancel());
        EXPECT_EQ(task.bodies, 0);
    }
}

TEST(Task, DoesAllOfARunButItsBodyWhenThatIsSkipped) {
    const auto room = std::make_shared<waiting_room>(), closed = std::make_shared<waiting_room>();
    closed->is_closed = true;
    sample first, submitted, refused, late;
    bool was_over = true;
    const auto look = [&](int*) { was_over = first.handle.wait(at_once); };
    auto without_processor =
        make_task("", nullptr, [held = std::shared_ptr<int>(nullptr, look)] {});
    first.share()->add_follow_up(submitted.share(), room);
    room->on_submit = [&] { EXPECT_EQ(first.share()->get_container(), first.container); };
    first.share()->add_follow_up(without_processor.share(), nullptr);
    first.share()->add_follow_up(refused.share(), closed);
    EXPECT_TRUE(room->tasks.empty());
    first.share()->run(true);
    EXPECT_TRUE(first.is_over() && without_processor.wait(at_once) && refused.is_over());
    EXPECT_FALSE(was_over) << "what follows a task starts before it has ended";
    EXPECT_EQ(first.bodies, 0);
    EXPECT_EQ(first.share()->get_container(), nullptr);
    room->on_submit = [] {};
    first.share()->add_follow_up(late.share(), room);
    EXPECT_EQ(room->tasks, (std::vector<shared_task>{submitted.share(), late.share()}));
}

TEST(Task, BelongsToOnePlaceAndIsCanceledWhenThatRefusesIt) {
    const auto room = std::make_shared<waiting_room>();
    sample task, stored;
    room->submit(task.share(), 0);
    room->submit(task.share(), 0);
    try {
        get_task_processor()->submit(task.share(), 0);
        ADD_FAILURE() << "handed over twice";
    } catch (const task_is_already_submitted& refusal) {
        EXPECT_STREQ(refusal.what(), "The task was already submitted.");
    }
    EXPECT_EQ(task.share()->take_submitter(), room);
    std::make_shared<waiting_room>()->submit(task.share(), 0); // and has gone
    room->submit(task.share(), 0);
    room->is_closed = true;
    EXPECT_THROW(submit_or_cancel(task.share(), *room), exceptions::fatal);
    const auto queue = std::make_shared<task_queue>(1);
    EXPECT_THROW(store_or_cancel(stored.share(), queue, nullptr, room), exceptions::fatal);
    EXPECT_TRUE(task.is_over() && stored.is_over());
}

struct open_pool final : task_pool_ifc {
    std::shared_ptr<task_submitter_ifc> place() noexcept override { return room; }
    std::shared_ptr<waiting_room> room = std::make_shared<waiting_room>();
};

TEST(Task, BelongsToOneOfAPoolAndAPlaceThatComeAtTheSameMoment) {
    open_pool pool;
    const auto room = std::make_shared<waiting_room>();
    constexpr int rounds = 300;
    std::vector<shared_task> tasks(rounds);
    for (auto& task : tasks)
        task = make_task("", nullptr, [] {}).share();
    std::atomic<int> in_pool{0}, in_room{0}, next{0};
    {
        watched_thread other([&] {
            for (int n = 0; n < rounds; ++n) {
                for (++next; next < 2 * n + 2;)
                    platform::pause_processor();
                in_pool += query<placed_task_ifc>(tasks[n]->cancellation())->enter_pool(pool);
            }
        });
        for (int n = 0; n < rounds; ++n) {
            for (++next; next < 2 * n + 2;)
                platform::pause_processor();
            in_room += !platform::guarded([&] { tasks[n]->set_submitter(room); });
        }
    }
    EXPECT_EQ(in_pool + in_room, rounds);
}

// A task of somebody else, who knows task_ifc only.
struct plain_task final : task_ifc, cancellation_ifc {
    explicit plain_task(std::shared_ptr<task_ifc> t) : inner(std::move(t)) {}
    std::string get_name() const override { return inner->get_name(); }
    std::uint32_t get_tag() const override { return inner->get_tag(); }
    std::shared_ptr<task_container_low_level_ifc> get_container() const override {
        return inner->get_container();
    }
    void run(bool skip_body) override {
        inner->run(skip_body);
        if (const auto held_by = std::exchange(container, nullptr))
            held_by->remove(self.lock());
    }
    void set_submitter(const std::shared_ptr<task_submitter_ifc>& place) override {
        inner->set_submitter(place);
    }
    std::shared_ptr<task_submitter_ifc> get_submitter() const override {
        return inner->get_submitter();
    }
    std::shared_ptr<task_submitter_ifc> take_submitter() override {
        return inner->take_submitter();
    }
    std::shared_ptr<ended_state_ifc> get_ended_state() const override {
        return inner->get_ended_state();
    }
    bool try_claim() override { return inner->try_claim(); }
    void set_queue(task_queue_ifc*) override {}
    void add_run_statistics(const run_snapshot&, const run_snapshot&) override {}
    void set_run_statistics(const run_statistics&) override {}
    run_statistics get_run_statistics() const override { return {}; }
    cancellation_ifc& cancellation() noexcept override { return *this; }
    task_positions& positions() noexcept override { return inner->positions(); }

    versioned_ifc* query_interface(const interface_id&) override { return nullptr; }
    bool cancel() override { return inner->cancellation().cancel(); }
    bool is_canceled() const override { return inner->cancellation().is_canceled(); }
    void add_callback(cancellation_callback*) override {}
    void remove_callback(cancellation_callback*) override {}

    std::shared_ptr<task_ifc> inner;
    std::shared_ptr<task_container_low_level_ifc> container;
    std::weak_ptr<task_ifc> self;
};

TEST(Task, OfAnotherKindIsHeldAndRunByWhatThereIs) {
    const auto processor = get_task_processor();
    const auto container = std::make_shared<low_level_task_container>("");
    for (const bool is_submitted : {true, false}) {
        int bodies = 0;
        const auto task =
            std::make_shared<plain_task>(make_task("", nullptr, [&] { ++bodies; }).share());
        task->self = task;
        task->container = container;
        container->add(task);
        EXPECT_FALSE(container->wait(at_once, 0));
        is_submitted ? processor->submit(task, 0) : processor->execute(task, true);
        EXPECT_TRUE(container->wait(in_time, 0) && task->get_ended_state()->is_ended());
        EXPECT_EQ(bodies, 1);
        EXPECT_EQ(task->get_submitter(), nullptr);
    }
}

// Asks the task about itself when it goes.
struct curious_place final : task_submitter_ifc {
    explicit curious_place(basic_task& task) : submitted(task) {}
    ~curious_place() override { submitted.get_submitter(); }
    void withdraw(task_ifc&) override {}
    basic_task& submitted;
};

TEST(Task, ReleasesAPlaceWithoutItsLockWhenThatGoesWhileItIsCompared) {
    const sample task;
    const auto other = std::make_shared<waiting_room>();
    std::atomic<int> refusals{0};
    std::atomic<bool> is_over{false};
    watched_thread refused([&] {
        while (!is_over)
            try {
                task.share()->set_submitter(other);
                task.share()->take_submitter();
            } catch (const task_is_already_submitted&) {
                ++refusals;
            }
    });
    for (int round = 0; round < 30; ++round) {
        auto place = std::make_shared<curious_place>(*task.share());
        while (task.share()->get_submitter() != place)
            try {
                task.share()->set_submitter(place);
            } catch (const task_is_already_submitted&) {
            }
        for (const int before = refusals; refusals < before + 1 + round % 3;)
            platform::pause_processor();
        place.reset(); // most likely while the other thread is being refused
    }
    is_over = true;
}

TEST(Task, ReportsWhatItsBodyThrewToTheHostOrTheLogAndAgainWhenNobodyFetchedIt) {
    const zel::test::log_capture log(2);
    const auto failing = [](const char* name) {
        auto made = make_task(name, nullptr, [] { throw std::runtime_error("why"); });
        made.share()->run(false);
        return made;
    };
    EXPECT_THROW(failing("fetched").get(), std::runtime_error);
    failing("task");
    failing("");
    auto& host = get_tasks_module()->log_exception_function();
    std::string told;
    host.set([&](const std::exception_ptr& failure) {
        told += exceptions::brief_text(failure);
        throw 1;
    });
    EXPECT_THROW(failing("told").get(), std::runtime_error);
    host.set({});
    EXPECT_EQ(told, "why");
    EXPECT_EQ(
        records(log),
        (texts{"tasks 2 374 task fetched: failed.\nwhy", "tasks 2 374 task task: failed.\nwhy",
               "tasks 7 400 task task: failed without a caller check.\nwhy",
               "tasks 2 376 Unnamed task: failed.\nwhy",
               "tasks 7 402 Unnamed task: failed without a caller check.\nwhy"}));
}

} // namespace
} // namespace zel::tasklib::test
