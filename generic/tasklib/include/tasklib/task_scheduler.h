// Running a task later.
#pragma once

#include <tasklib/task_ifc.h>
#include <tasklib/unbiased_clock.h>

#include <framework/threading/universal_timeout.h>

namespace zel::tasklib {

/// When to run.
class ZEL_EXPORT scheduling_parameters_ifc : public InterfaceBase {
public:
    /// From now on; zero once the time has come, infinite for never.
    virtual threading::universal_timeout time_left() const = 0;
};

/// One run at a point of a clock. The last point that the clock can show stands for never.
template <class Clock>
class basic_single_run_sch_params final : public scheduling_parameters_ifc {
public:
    explicit basic_single_run_sch_params(typename Clock::time_point when) noexcept : when_(when) {}

    threading::universal_timeout time_left() const override {
        using std::chrono::microseconds;
        if (when_ == Clock::time_point::max())
            return {};
        const auto now = Clock::now();
        if (when_ <= now)
            return {false, 0};
        return {false, std::chrono::ceil<microseconds>(when_ - now).count()};
    }

private:
    typename Clock::time_point when_;
};

class ZEL_EXPORT task_scheduler_ifc : public task_submitter_ifc {
public:
    static constexpr std::int32_t interface_version = 9;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Keeps the task until the time has come, and then submits it to the processor. The
    /// parameters are asked once, at the call; the flags are reserved. Throws what
    /// task_processor_ifc::submit throws.
    virtual void schedule(const std::shared_ptr<task_ifc>& task,
                          const std::shared_ptr<task_processor_ifc>& processor,
                          const std::shared_ptr<scheduling_parameters_ifc>& parameters,
                          std::uint32_t flags) = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::task_scheduler_ifc> {
    static std::string text() { return "class zel::tasklib::task_scheduler_ifc"; }
};
