// A task library built for other versions, which somebody uses until the end.
#include "framework/module_interface/module_lifetime.h"

#include <tasklib/task_processor.h>
#include <tasklib/task_scheduler.h>
#include <tasklib/tasks_core_module.h>

#include <cstdlib>

namespace zel::tasklib::detail {

namespace {

struct newer_processor final : task_processor_ifc {
    std::int32_t GetInterfaceVersion() const override { return 5; }
    void submit(const std::shared_ptr<task_ifc>&, std::uint32_t) override { std::abort(); }
    void execute(const std::shared_ptr<task_ifc>&, bool) override { std::abort(); }
    void withdraw(task_ifc&) override { std::abort(); }
};

struct newer_scheduler final : task_scheduler_ifc {
    std::int32_t GetInterfaceVersion() const override { return 10; }
    void schedule(const std::shared_ptr<task_ifc>&, const std::shared_ptr<task_processor_ifc>&,
                  const std::shared_ptr<scheduling_parameters_ifc>&, std::uint32_t) override {
        std::abort();
    }
    void withdraw(task_ifc&) override { std::abort(); }
};

struct odd_module final : tasks_core_module {
    std::int32_t GetInterfaceVersion() const override { return std::getenv("NEWER") ? 7 : 6; }
    std::shared_ptr<ended_state_ifc> create_ended_state() override { std::abort(); }
    std::shared_ptr<task_processor_ifc> get_task_processor() override {
        return std::make_shared<newer_processor>();
    }
    std::shared_ptr<cancellation_ifc> get_this_taskcancellation() override { std::abort(); }
    LogExceptionFunctionData& log_exception_function() override { std::abort(); }
    std::shared_ptr<task_scheduler_ifc> get_task_scheduler() override {
        return std::make_shared<newer_scheduler>();
    }
};

} // namespace

ZEL_EXPORT std::shared_ptr<tasks_core_module> CreateTasksCoreModule() {
    static const auto instance = std::make_shared<odd_module>();
    return instance;
}

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<mi::ResidentLifetime>();
}

} // namespace zel::tasklib::detail
