// Several threads make tasks, hand them over in every way, cancel them, wait for them
// and destroy what they belong to; the sanitizers watch.
#include "generic/tasklib/src/tasks/task_support_test.h"
#include "tests/support/stress.h"

#include <platform/announced_wait.h>
#include <platform/process.h>
#include <tasklib/task_threads_module.h>

#include <iostream>

namespace zel::tasklib::test {
namespace {

using zel::test::random_number;
using parameters = basic_single_run_sch_params<unbiased_clock>;

// A container that nobody adds to any more when it goes.
struct owner {
    ~owner() {
        if (!holds_endless_ones) {
            EXPECT_TRUE(low_level->wait(in_time, 0)) << "a task was forgotten";
        }
        tasks.reset();
        EXPECT_EQ(*alive, 0) << "captures outlive their container";
    }

    std::shared_ptr<task_container> tasks = std::make_shared<task_container>("");
    std::shared_ptr<task_container_low_level_ifc> low_level = tasks->get_low_level_container();
    std::shared_ptr<std::atomic<int>> alive = std::make_shared<std::atomic<int>>(0);
    std::atomic<bool> holds_endless_ones{false};
};

class commotion : public zel::test::commotion {
    bool has_seen_everything() const override {
        return bodies_ > 1000 && cancels_ > 100 && replaced_owners_ > 100;
    }

    // Where a body and those inside of it belong.
    struct place {
        std::shared_ptr<task_container_low_level_ifc> container;
        std::shared_ptr<std::atomic<int>> alive;
    };

    static threading::universal_timeout shortly(random_number& random) {
        return {false, static_cast<std::int64_t>(random() % 500)};
    }

    template <class Item>
    Item any_of(std::vector<Item>& items, random_number& random) {
        return held_in(items[random() % items.size()]);
    }
    template <class Item>
    void put_anywhere(std::vector<Item>& items, random_number& random, Item item) {
        put(items[random() % items.size()], item);
    }

    void step(unsigned kind, random_number& random) override {
        const auto held_by = any_of(owners_, random);
        const place here{held_by->low_level, held_by->alive};
        const auto queue = any_of(queues_, random);
        if (kind < 3) {
            submit_or_cancel(make(here, random).share(), *processor_);
        } else if (kind == 3) {
            const auto task = make(here, random);
            if (queue->try_push(task.share()) == push_outcome::full)
                task.cancel();
            ensure_runner(held_by->tasks, processor_, queue);
        } else if (kind < 6) {
            store_or_cancel(make(here, random).share(), queue, held_by->tasks, processor_);
        } else if (kind < 8) {
            const auto soon = unbiased_clock::now() + std::chrono::microseconds(random() % 2000);
            schedule(here, soon, random);
        } else if (kind == 8) {
            held_by->holds_endless_ones = true;
            schedule(here, unbiased_clock::time_point::max(), random);
        } else if (kind == 9) {
            processor_->execute(make(here, random).share(), true);
        } else if (kind == 10) {
            queue->run_all_stored_tasks(processor_);
        } else if (kind == 11) {
            put_anywhere(queues_, random, std::make_shared<task_queue>(1 + random() % 2));
        } else if (kind == 12) {
            here.container->wait(shortly(random), 0);
        } else if (kind == 13) {
            any_of(handles_, random).wait(shortly(random));
        } else if (kind == 14) {
            cancels_ += !any_of(handles_, random).cancel();
        } else {
            put_anywhere(owners_, random, std::make_shared<owner>());
            ++replaced_owners_;
        }
    }

    task<void> make(const place& here, random_number& random) {
        auto handle = make_task("task", here.container, body(here, random));
        put_anywhere(handles_, random, handle);
        return handle;
    }

    void schedule(const place& here, unbiased_clock::time_point when, random_number& random) {
        get_task_scheduler()->schedule(make(here, random).share(), processor_,
                                       std::make_shared<parameters>(when), 0);
    }

    std::function<void()> body(const place& here, random_number& random) {
        ++*here.alive;
        const std::shared_ptr<std::atomic<int>> alive(here.alive.get(),
                                                      [a = here.alive](auto*) { --*a; });
        const auto runs = std::make_shared<std::atomic<int>>(0);
        return [=, this, seed = random()] {
            ++bodies_;
            EXPECT_EQ((*runs)++, 0) << "runs twice";
            EXPECT_GT(*alive, 0);
            random_number numbers(seed);
            work(numbers() % 8, here, numbers);
        };
    }

    void work(unsigned kind, const place& here, random_number& random) {
        if (kind == 0) {
            const auto inner = make_task("inner", here.container, [held = here] {});
            submit_or_cancel(inner.share(), *processor_);
            EXPECT_TRUE(inner.wait(in_time));
        } else if (kind == 1) {
            const auto inner = make_task("inner", here.container, [held = here] {});
            store_or_cancel(inner.share(), any_of(queues_, random), nullptr, processor_);
        } else if (kind == 2) {
            here.container->wait(shortly(random), 0);
        } else if (kind == 3) {
            cancels_ += !any_of(handles_, random).cancel();
        } else if (kind == 4) {
            throw std::runtime_error("fails");
        } else if (kind == 5) {
            const platform::announced_wait others_take_over;
            platform::sleep_for(milliseconds(random() % 2));
        } else if (kind == 6) {
            task_thread_limits limits;
            limits.cores = 1 + static_cast<std::uint32_t>(random() % 4);
            get_task_threads_module()->set_limits(limits);
        }
    }

    std::atomic<std::uint64_t> bodies_{0}, cancels_{0}, replaced_owners_{0};
    std::shared_ptr<task_processor_ifc> processor_ = get_task_processor();
    std::vector<std::shared_ptr<task_queue>> queues_{8, std::make_shared<task_queue>(1)};
    std::vector<task<void>> handles_{8, make_task("", nullptr, [] {})};
    // Go first, with all that is left.
    std::vector<std::shared_ptr<owner>> owners_{8, std::make_shared<owner>()};
};

TEST(TaskStress, EveryTaskEndsRunsOnceAtMostAndLeavesNothingBehind) {
    const zel::test::log_capture failures_are_kept_off_the_screen(log::silent);
    const char* const given = std::getenv("TASK_STRESS_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::atoi(given)) : std::random_device()();
    std::cout << "TASK_STRESS_SEED=" << seed << '\n';
    commotion().run(seed);
}

} // namespace
} // namespace zel::tasklib::test
