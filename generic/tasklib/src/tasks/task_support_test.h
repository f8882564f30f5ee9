// What the tests of tasks share.
#pragma once

#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_container.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"
#include "platform/src/watched_thread_test.h"

#include <platform/diagnostics.h>

#include <functional>
#include <gtest/gtest.h>
#include <mutex>

namespace zel::tasklib::test {

using platform::milliseconds;
using platform::watched_thread;

inline constexpr threading::universal_timeout at_once{false, 0};
inline constexpr threading::universal_timeout in_time{false, 10'000'000};

/// Is set once.
struct signal : platform::event {
    signal() : event(platform::reset_mode::manual, false) {}
    bool comes() { return wait(platform::patience); }
};

/// A task of its own container, and whether all of it is over.
struct sample {
    explicit sample(std::function<void()> does = [] {}) : body(std::move(does)) {}

    /// Ended, out of its container, and nothing of it is left.
    bool is_over() const {
        return handle.wait(at_once) && container->wait(at_once, 0) && payload.use_count() == 1;
    }
    std::shared_ptr<basic_task> share() const { return handle.share(); }

    std::function<void()> body;
    std::atomic<int> bodies{0};
    std::shared_ptr<int> payload = std::make_shared<int>();
    std::shared_ptr<low_level_task_container> container =
        std::make_shared<low_level_task_container>("");
    task<void> handle = make_task("sample", container, [this, held = payload] {
        ++bodies;
        body();
    });
};

/// Keeps what it is given.
class waiting_room final : public task_processor_ifc,
                           public std::enable_shared_from_this<waiting_room> {
public:
    void submit(const std::shared_ptr<task_ifc>& task, std::uint32_t) override {
        if (is_closed)
            throw exceptions::fatal("closed");
        task->set_submitter(shared_from_this());
        tasks.push_back(task);
    }
    void execute(const std::shared_ptr<task_ifc>& task, bool) override { executes(task); }
    void withdraw(task_ifc& task) override {
        std::erase_if(tasks, [&](const auto& t) { return t.get() == &task; });
    }

    bool is_closed = false;
    std::vector<std::shared_ptr<task_ifc>> tasks;
    std::function<void(const std::shared_ptr<task_ifc>&)> executes;
};

/// The texts that the diagnostic observers are told.
class report_capture {
public:
    std::vector<std::string> texts() const {
        std::lock_guard inside(told_->guard);
        return told_->texts;
    }

private:
    struct reports {
        std::mutex guard;
        std::vector<std::string> texts;
    };
    std::shared_ptr<reports> told_ = std::make_shared<reports>();
    platform::exception_observer observer_{
        [told = told_](platform::diagnostic code, platform::raise_arguments arguments) {
            std::lock_guard inside(told->guard);
            EXPECT_EQ(code, platform::diagnostic::text_report);
            told->texts.emplace_back(reinterpret_cast<const char*>(arguments[1]), arguments[0]);
        }};
};

} // namespace zel::tasklib::test
