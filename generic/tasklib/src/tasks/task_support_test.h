// What the tests of tasks share.
#pragma once

#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_container.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <platform/diagnostics.h>

#include <gtest/gtest.h>

namespace zel::tasklib::test {

using platform::milliseconds, platform::signal, platform::watched_thread;
using texts = std::vector<std::string>;
using shared_task = std::shared_ptr<task_ifc>;

inline constexpr threading::universal_timeout at_once{false, 0}, in_time{false, 10'000'000};

inline std::shared_ptr<basic_task> basic(const task<void>& handle) {
    return std::static_pointer_cast<basic_task>(handle.share());
}

/// A task of its own container.
struct sample {
    explicit sample(std::function<void()> does = [] {}) : body(std::move(does)) {}
    std::shared_ptr<basic_task> share() const { return basic(handle); }
    /// Has ended and left its container, and its captures are gone.
    bool is_over() const {
        return handle.wait(at_once) && container->wait(at_once, 0) && payload.use_count() == 1;
    }

    std::function<void()> body;
    std::atomic<int> bodies{0}, claims{0};
    std::shared_ptr<int> payload = std::make_shared<int>();
    std::shared_ptr<low_level_task_container> container =
        std::make_shared<low_level_task_container>("");
    task<void> handle = make_task("sample", container, [this, held = payload] {
        ++bodies;
        body();
    });
};

/// Keeps what it is given, or refuses it.
struct waiting_room final : task_processor_ifc, std::enable_shared_from_this<waiting_room> {
    void submit(const shared_task& task, std::uint32_t) override {
        if (is_closed)
            throw exceptions::fatal("closed");
        on_submit();
        task->set_submitter(shared_from_this());
        tasks.push_back(task);
    }
    void execute(const shared_task& task, bool) override { executes(task); }
    void withdraw(task_ifc& task) override {
        std::erase_if(tasks, [&](const auto& t) { return t.get() == &task; });
    }

    bool is_closed = false;
    std::vector<shared_task> tasks;
    std::function<void(const shared_task&)> executes;
    std::function<void()> on_submit = [] {};
};

/// What the diagnostic observers are told, one thread after another.
struct report_capture {
    std::shared_ptr<texts> told = std::make_shared<texts>();
    platform::exception_observer observer{[told = told](auto, platform::raise_arguments text) {
        told->emplace_back(reinterpret_cast<const char*>(text[1]), text[0]);
    }};
};

inline texts records(const zel::test::log_capture& log) {
    texts all;
    for (const auto& line : log.lines())
        all.push_back(line.module + " " + std::to_string(line.severity) + " " +
                      std::to_string(line.number) + " " + line.text);
    return all;
}

} // namespace zel::tasklib::test
