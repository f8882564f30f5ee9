// Several threads make tasks, hand them over in every way, cancel them, wait for them
// and destroy what they belong to, for a few seconds; the sanitizers watch.
#include "generic/tasklib/src/tasks/task_support_test.h"

#include <array>
#include <cstdlib>
#include <iostream>
#include <random>

namespace zel::tasklib::test {
namespace {

using random_numbers = std::minstd_rand;
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

class commotion {
public:
    explicit commotion(unsigned seed) : seed_(seed) {}

    void run(unsigned thread) {
        random_numbers random(seed_ + thread);
        while (std::chrono::steady_clock::now() < end_)
            step(random() % 16, random);
    }

    std::atomic<std::uint64_t> bodies{0}, cancels{0}, owners{0};

private:
    // Where a body and those inside of it belong.
    struct place {
        std::shared_ptr<task_container_low_level_ifc> container;
        std::shared_ptr<std::atomic<int>> alive;
    };

    static threading::universal_timeout shortly(random_numbers& random) {
        return {false, static_cast<std::int64_t>(random() % 500)};
    }

    template <class Item>
    Item any_of(std::array<Item, 8>& items, random_numbers& random) {
        std::lock_guard inside(guard_);
        return items[random() % items.size()];
    }
    template <class Item>
    void put(std::array<Item, 8>& items, random_numbers& random, Item item) {
        std::unique_lock inside(guard_);
        std::swap(items[random() % items.size()], item);
        inside.unlock(); // the former one goes without the lock
    }

    void step(unsigned kind, random_numbers& random) {
        const auto held_by = any_of(owners_, random);
        const place here{held_by->low_level, held_by->alive};
        const auto queue = any_of(queues_, random);
        if (kind < 3) {
            submit_or_cancel(make(here, random).share(), *processor_);
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
            put(queues_, random, std::make_shared<task_queue>(1 + random() % 2));
        } else if (kind == 12) {
            here.container->wait(shortly(random), 0);
        } else if (kind == 13) {
            any_of(handles_, random).wait(shortly(random));
        } else if (kind == 14) {
            cancels += !any_of(handles_, random).cancel();
        } else {
            put(owners_, random, std::make_shared<owner>());
            ++owners;
        }
    }

    task<void> make(const place& here, random_numbers& random) {
        auto handle = make_task("task", here.container, body(here, random));
        put(handles_, random, handle);
        return handle;
    }

    void schedule(const place& here, unbiased_clock::time_point when, random_numbers& random) {
        get_task_scheduler()->schedule(make(here, random).share(), processor_,
                                       std::make_shared<parameters>(when), 0);
    }

    std::function<void()> body(const place& here, random_numbers& random) {
        ++*here.alive;
        const std::shared_ptr<std::atomic<int>> alive(here.alive.get(),
                                                      [a = here.alive](auto*) { --*a; });
        const auto runs = std::make_shared<std::atomic<int>>(0);
        return [=, this, seed = random()] {
            ++bodies;
            EXPECT_EQ((*runs)++, 0) << "runs twice";
            EXPECT_GT(*alive, 0);
            random_numbers numbers(seed);
            work(numbers() % 8, here, numbers);
        };
    }

    void work(unsigned kind, const place& here, random_numbers& random) {
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
            cancels += !any_of(handles_, random).cancel();
        } else if (kind == 4) {
            throw std::runtime_error("fails");
        }
    }

    template <class Item>
    static std::array<Item, 8> filled(const auto& make_item) {
        std::array<Item, 8> items;
        for (auto& item : items)
            item = make_item();
        return items;
    }

    const unsigned seed_;
    const std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(3);
    std::shared_ptr<task_processor_ifc> processor_ = get_task_processor();
    std::mutex guard_; // guards what follows
    std::array<std::shared_ptr<task_queue>, 8> queues_ =
        filled<std::shared_ptr<task_queue>>([] { return std::make_shared<task_queue>(1); });
    std::array<task<void>, 8> handles_ =
        filled<task<void>>([] { return make_task("", nullptr, [] {}); });
    // Go first, with all that is left.
    std::array<std::shared_ptr<owner>, 8> owners_ =
        filled<std::shared_ptr<owner>>([] { return std::make_shared<owner>(); });
};

TEST(TaskStress, EveryTaskEndsRunsOnceAtMostAndLeavesNothingBehind) {
    const zel::test::log_capture failures_are_kept_off_the_screen(log::silent);
    const char* const given = std::getenv("TASK_STRESS_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::atoi(given)) : std::random_device()();
    std::cout << "TASK_STRESS_SEED=" << seed << '\n';
    commotion all(seed);
    {
        std::vector<std::jthread> running;
        for (unsigned thread = 0; thread < 4; ++thread)
            running.emplace_back([&all, thread] { all.run(thread); });
    }
    EXPECT_GT(all.bodies, 1000u);
    EXPECT_GT(all.cancels, 100u);
    EXPECT_GT(all.owners, 100u);
}

} // namespace
} // namespace zel::tasklib::test
