// The log of the process: records in, sinks out.
//
// A host follows the log by adding a sink of its own:
//
//     class my_sink : public zel::log::ILogSink { void Write(const record& r) override { ... } };
//     auto log = zel::log::get_log_module();
//     auto following = log->AddSink(std::make_shared<my_sink>(), 0);
//     log->SetDefaultSinkSeverity(zel::log::silent);
//
// From the start one sink writes a line per record to standard error, from
// severity 5 up. Of failures with the same message it writes the first, then how many there
// are: at the 10th, the 100th and so on, with what the latest exception says, and at the end.
// Exceptions in between are not shown, also where they say something else. Sinks of the host
// get every record.
// Implemented by the library `log`.
#pragma once

#include "framework/module_interface/interface.h"

#include <exception>
#include <limits>
#include <memory>
#include <string_view>

namespace zel::log {

/// Severities used by the libraries of this product; larger is worse.
namespace severity {
inline constexpr int registration = 0;
inline constexpr int statistics = 0;
inline constexpr int declined = 0;
inline constexpr int task_failed = 2;
inline constexpr int failed_operation = 5;
inline constexpr int handler_failed = 7;
inline constexpr int fatal_failure = 8;
} // namespace severity

/// The lowest severity of a sink that wants no record at all.
inline constexpr int silent = std::numeric_limits<int>::max();

struct record {
    std::string_view module;    ///< the subject: "event_rout", "tasks"
    std::string_view source_id; ///< names the source file, 8 hexadecimal digits
    int line = 0;
    int severity = 0;
    /// The message; for an attached exception followed by a newline and its text.
    std::string_view text;
    std::exception_ptr exception; ///< null when none is attached
};

/// Receives records. It is a counted object like every interface, so that the library
/// it lives in stays mapped while the log feeds it. It is called on the thread that writes,
/// on several threads at once, and may itself log and route. When it throws, the other sinks
/// get the record all the same, and the writer gets the exception, unless the record
/// reports a failure.
class ZEL_EXPORT ILogSink : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual void Write(const record& entry) = 0;
};

class ZEL_EXPORT ILogModule : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// The lowest severity that any sink wants; costs one atomic load.
    virtual int LowestSeverity() const noexcept = 0;

    /// Hands the record to every sink that wants its severity. `entry.text` is
    /// the bare message; the exception's text is added here.
    virtual void Write(const record& entry) = 0;

    /// The sink is fed until the result is destroyed; a call that is running on
    /// another thread at that moment may still end later.
    [[nodiscard]] virtual std::shared_ptr<InterfaceBase> AddSink(std::shared_ptr<ILogSink> sink,
                                                                 int lowest_severity) = 0;

    /// Changes the lowest severity of the sink that writes to standard error. It writes how many
    /// repeated failures it has not shown so far, and counts anew.
    virtual void SetDefaultSinkSeverity(int lowest_severity) = 0;
};

/// The log of this process, loaded on first use. Throws exceptions::error when
/// the library `log` cannot be loaded or has ended.
std::shared_ptr<ILogModule> get_log_module();

} // namespace zel::log

template <>
struct zel::declared_type_name<zel::log::ILogModule> {
    static std::string text() { return "class zel::log::ILogModule"; }
};
