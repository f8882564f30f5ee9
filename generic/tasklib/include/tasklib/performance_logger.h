// Measuring what tasks cost. Implemented by the library `perfstats`.
//
// A host that wants the figures installs a logger; until then nothing is measured:
//
//     storage->set_performance_logger(std::make_shared<my_logger>());
#pragma once

#include <framework/module_interface/interface.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace zel::perfstats {

/// What the kernel counted for a thread; times in 100 ns ticks.
struct Data {
    std::int64_t user_time = 0;
    std::int64_t kernel_time = 0;
    std::int64_t page_faults = 0;
    std::int64_t page_reads = 0; ///< faults for which a device was read
    std::int64_t voluntary_switches = 0;
    std::int64_t involuntary_switches = 0;

    friend Data operator-(const Data& end, const Data& begin) noexcept {
        return {end.user_time - begin.user_time,
                end.kernel_time - begin.kernel_time,
                end.page_faults - begin.page_faults,
                end.page_reads - begin.page_reads,
                end.voluntary_switches - begin.voluntary_switches,
                end.involuntary_switches - begin.involuntary_switches};
    }
};

} // namespace zel::perfstats

namespace zel::tasklib {

class ZEL_EXPORT performance_logger_ifc : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 4;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Called on the thread that ran the task, when its body has ended. The kind is
    /// 1 for a thread, 2 for a task. The statistics are null where the system keeps
    /// none.
    virtual void log_task_performance(std::uint32_t kind, const std::string& name,
                                      double elapsed_seconds, double processor_seconds,
                                      const perfstats::Data* statistics) = 0;
};

/// One per process.
class ZEL_EXPORT performance_logger_storage_module : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 3;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Null when none is installed.
    virtual std::shared_ptr<performance_logger_ifc> get_performance_logger() = 0;
    /// Runs that began before this call are not reported. Null ends all measuring.
    virtual void set_performance_logger(std::shared_ptr<performance_logger_ifc> logger) = 0;

    /// Whether runs are measured while a logger is installed; on from the start.
    virtual void set_measurement(bool on) = 0;
    /// True while a logger is installed and measurement is on. The atomic lives as long as
    /// the library is mapped.
    virtual const std::atomic<bool>& is_measuring() const noexcept = 0;

    /// The calling thread's figures now. Throws exceptions::error where the system
    /// keeps none.
    virtual perfstats::Data begin_thread_statistics() = 0;
    virtual perfstats::Data end_thread_statistics() = 0;
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::performance_logger_ifc> {
    static std::string text() { return "class zel::tasklib::performance_logger_ifc"; }
};

template <>
struct zel::declared_type_name<zel::tasklib::performance_logger_storage_module> {
    static std::string text() { return "class zel::tasklib::performance_logger_storage_module"; }
};
