#include "framework/module_interface/version_check.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"

#include <platform/process.h>

#include <gtest/gtest.h>

namespace {

using namespace zel::tasklib;

struct logger : performance_logger_ifc {
    void log_task_performance(std::uint32_t kind, const std::string& name, double elapsed,
                              double processor, const zel::perfstats::Data* grown) override {
        EXPECT_TRUE(elapsed > 0 && processor > 0 && grown->user_time + grown->kernel_time > 0 &&
                    grown->page_faults > 0 && grown->voluntary_switches > 0);
        told += std::to_string(kind) + name;
    }
    std::string told;
};

struct newer_logger final : logger {
    std::int32_t GetInterfaceVersion() const override { return 5; }
};

TEST(PerformanceLogger, IsToldOfRunsAndTheirFiguresWhileItIsInstalledAndMeasuringIsOn) {
    const auto storage = get_performance_logger_storage_module();
    const auto run = [](const char* name, auto body) {
        make_task(name, nullptr, body).share()->run(false);
    };
    const auto work = [&] {
        const auto begin = storage->begin_thread_statistics();
        for (auto now = begin;
             now.user_time == begin.user_time || now.page_faults == begin.page_faults ||
             now.voluntary_switches == begin.voluntary_switches;
             now = storage->end_thread_statistics()) {
            std::vector<char>(10'000'000, 'x');
            zel::platform::sleep_for(zel::platform::milliseconds(1)); // a voluntary switch
        }
    };
    const auto installed = std::make_shared<logger>();
    run("nobody listens", [] { EXPECT_FALSE(is_measuring()); });
    storage->set_performance_logger(installed);
    EXPECT_THROW(storage->set_performance_logger(std::make_shared<newer_logger>()),
                 zel::WrongIfcVersion);
    EXPECT_EQ(storage->get_performance_logger(), installed) << "the one before stays";
    run("a", work);
    storage->set_measurement(false);
    run("switched off", [] { EXPECT_FALSE(is_measuring()); });
    storage->set_measurement(true);
    run("removed meanwhile", [&] { storage->set_performance_logger(nullptr); });
    EXPECT_FALSE(is_measuring());
    EXPECT_EQ(installed->told, "2a");
    EXPECT_EQ(installed.use_count(), 1);
}

} // namespace
