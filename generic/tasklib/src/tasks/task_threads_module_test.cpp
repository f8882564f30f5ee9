#include "generic/tasklib/src/tasks/task_support_test.h"

#include <platform/announced_wait.h>
#include <tasklib/task_threads_module.h>

namespace zel::tasklib::test {
namespace {

TEST(TaskThreadsModule, LetsAHostRelyOnAnnouncedWaitsAlone) {
    const auto module = get_task_threads_module();
    const auto before = module->get_limits();
    auto patient = before;
    patient.stalled = std::chrono::hours(1); // nobody comes to those that block unannounced
    module->set_limits(patient);
    signal opened;
    std::vector<task<void>> waiting;
    const auto submit = [](auto body) {
        auto made = make_task("", nullptr, body);
        submit_or_cancel(made.share(), *get_task_processor());
        return made;
    };
    for (std::uint32_t i = 0; i < before.cores + 3; ++i)
        waiting.push_back(submit([&] {
            const platform::announced_wait others_take_over;
            EXPECT_TRUE(opened.comes());
        }));
    submit([&] { opened.set(); });
    for (const auto& each : waiting)
        EXPECT_TRUE(each.wait(in_time));
    module->set_limits(before);
}

} // namespace
} // namespace zel::tasklib::test
