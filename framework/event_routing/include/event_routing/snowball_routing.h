// Snowball routing: one payload along a dot-separated path, to which every matching
// handler adds.
//
//     auto snowballs = zel::event_routing::get_snowball_routing(*module);
//     auto cookie = snowballs->RegisterSnowballHandler(
//         "menu.build",
//         [](const std::string&, const snowball_data&, snowball_result& response,
//            snowball_result& error_response, const routing_parameters&) {
//             response = with_my_entries(response);
//         },
//         "print menu");
//     snowball_result response = empty_menu(), error_response;
//     snowballs->SendSnowball("menu.build", nullptr, response, error_response, {});
//
// Every handler is called once, on the sender's thread, from the most specific
// registration to the least, in registration order within a level. Each finds in the two
// outputs what those before it left. What a handler throws ends the pass and reaches the
// sender. typed.h puts C++ types in place of the payloads.
//
// Handlers may send, register and drop cookies, their own too: no lock of the service is
// held while they run. A handler registered during a pass is not called in it; one dropped
// meanwhile is skipped. Dropping a cookie is the only way to unregister. It waits for
// calls of the handler on other threads, except from inside the handler itself.
#pragma once

#include <event_routing/fwd.h>
#include <event_routing/routing_parameters.h>

#include <framework/module_interface/interface.h>
#include <framework/serialization/data_holder.h>
#include <tasklib/fwd.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zel::event_routing {

/// The payload of a snowball; may be null.
using snowball_data = std::shared_ptr<const serialization::IDataHolder>;
/// What handlers add to.
using snowball_result = std::shared_ptr<serialization::IDataHolder>;

/// Adds to the outputs or replaces them.
using snowball_handler = std::function<void(
    const std::string& path, const snowball_data& data, snowball_result& response,
    snowball_result& error_response, const routing_parameters& parameters)>;

/// Is told of every pass that began while it was registered (snowball_handling_info.h), on
/// the sender's thread when the pass has ended; several threads may call it at once.
/// `error` is what the sender is about to receive. What it throws is reported to the
/// diagnostic observers and goes no further.
using snowball_monitor = std::function<void(
    const std::string& path, const snowball_data& data, const snowball_data& response,
    const snowball_data& error_response, const routing_parameters& parameters,
    const monitor::snowball_handling_info_3& info, std::exception_ptr error)>;

/// Sends snowballs from handler to handler. Any thread may call every operation.
class ZEL_EXPORT ISnowballRouting : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 4;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Calls every handler of the path. The first finds the caller's own values in the
    /// outputs; without a handler they stay as they are. While there are monitors,
    /// "monitoring_message_id" and "monitoring_message_pid" are added to the parameters
    /// unless the first of them is there.
    virtual void SendSnowball(const std::string& path, const snowball_data& data,
                              snowball_result& response, snowball_result& error_response,
                              const routing_parameters& parameters) = 0;

    /// Registers a handler, as long as somebody holds the result. Throws exceptions::error
    /// for a path with a misplaced "*".
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterSnowballHandler(const std::string& path, const snowball_handler& handler,
                            const std::string& description) = 0;

    /// Path and description of every handler.
    virtual std::vector<std::pair<std::string, std::string>> GetSnowballHandlers() = 0;

    /// The monitor is told of passes that begin from now on, as long as somebody holds the
    /// result. Dropping that waits for running calls, except from inside the monitor.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(snowball_monitor monitor) = 0;

    /// Does nothing: passes run no tasks.
    virtual void WaitForTasks() = 0;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::ISnowballRouting> {
    static std::string text() { return "class zel::event_routing::ISnowballRouting"; }
};
