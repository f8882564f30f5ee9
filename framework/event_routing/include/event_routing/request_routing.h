// Request routing: one question along a dot-separated path, one answer.
//
//     auto requests = zel::event_routing::get_request_routing(*module);
//     auto cookie = requests->RegisterRequestHandler(
//         "spelling.check", 0,
//         [](const std::string&, const request_data& word, request_answer& response,
//            request_answer& error_response, const routing_parameters&) {
//             response = check(word);
//             return true; // false: somebody else may answer
//         },
//         "dictionary");
//     request_answer response, error_response;
//     const bool answered = requests->SendRequest("spelling.check", word, response,
//                                                 error_response, {});
//
// Everything runs on the sender's thread. Handlers are tried one after another until
// one answers true: first redirections; then the regular ones, those of the highest
// priority first and among these the most specific paths; then fallbacks. Handlers of
// one priority (or fallbacks) whose paths are equally specific are all called, and two
// of them that answer make the request fail; the first redirection that answers ends it.
//
// Handlers may send, register and drop cookies, their own too: no lock of the service is
// held while they run, unless the request is sent while a registration is announced. A handler
// registered meanwhile takes part in the passes that begin later; one dropped meanwhile is skipped.
// What a handler throws ends the request and reaches the sender. typed.h puts C++ types in place of
// the payloads.
//
// Dropping a cookie is the only way to unregister. It waits for calls of the handler on
// other threads, except from inside the handler itself.
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

/// The payload of a request; may be null.
using request_data = std::shared_ptr<const serialization::IDataHolder>;
/// What handlers write: an answer, or an error response; null until one does.
using request_answer = std::shared_ptr<serialization::IDataHolder>;

/// Answers true when it has processed the request. The two outputs are the sender's own:
/// later handlers and the sender see what is written there, even when the handler then
/// answers false or throws. Data in `error_response` marks an answer as failed.
using request_handler =
    std::function<bool(const std::string& path, const request_data& data, request_answer& response,
                       request_answer& error_response, const routing_parameters& parameters)>;

/// Is told of every request that began while it was registered (request_handling_info.h),
/// on the sender's thread when the request has ended; several threads may call it at once.
/// `error` is what the sender is about to receive. What it throws is reported to the
/// diagnostic observers and goes no further.
using request_monitor = std::function<void(
    const std::string& path, const request_data& data, const request_data& response,
    const request_data& error_response, const routing_parameters& parameters,
    const monitor::request_handling_info_3& info, std::exception_ptr error)>;

/// Has requests answered. Any thread may call every operation.
class ZEL_EXPORT IRequestRouting : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 10;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Empties both outputs and asks the handlers. True when one has processed the request
    /// and left `error_response` without data. Throws request_was_not_processed when none
    /// has, multiple_request_handlers when two have, and what a handler throws.
    ///
    /// Three parameters (constants in routing_parameters.h) steer the request by being there,
    /// whatever their value. With
    /// "supress_not_processed_exception" it does not throw when no handler has processed the
    /// request, and the result tells only whether one has, whatever `error_response` holds.
    /// With "skip_request_fallbacsk" fallbacks are not asked. With
    /// "prefer_local_request_handlers" the regular handlers are asked twice: at first with
    /// "target_session" = -3, by which they know to answer only for themselves, and if none
    /// has answered, once more with what the caller gave; a caller that gave -3 itself has
    /// them asked once. Handlers see neither the first nor the last of the three.
    ///
    /// While there are monitors, "monitoring_message_id" and "monitoring_message_pid" are
    /// added unless the first of them is there.
    virtual bool SendRequest(const std::string& path, const request_data& data,
                             request_answer& response, request_answer& error_response,
                             const routing_parameters& parameters) = 0;

    /// Registers a regular handler, as long as somebody holds the result, and broadcasts
    /// "event_routing.request_handler.registered" on the default event service with the
    /// path as a "string". That runs inside of this call with the registrations held:
    /// requests on other threads wait for it, and so does this call for a handler that
    /// waits for them. Throws exceptions::error for a path with a misplaced "*", and what
    /// keeps the broadcast from being made, when the serialization library has ended for
    /// instance; nothing is registered then.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterRequestHandler(const std::string& path, std::int32_t priority,
                           const request_handler& handler, const std::string& description) = 0;

    /// Registers a handler for what no regular handler has processed, as long as somebody
    /// holds the result. Throws exceptions::error for a path with a misplaced "*".
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterRequestFallbackHandler(const std::string& path, const request_handler& handler,
                                   const std::string& description) = 0;

    /// Path and description of every regular handler.
    virtual std::vector<std::pair<std::string, std::string>> GetRequestHandlers() = 0;

    /// The monitor is told of requests that begin from now on, as long as somebody holds
    /// the result. Dropping that waits for running calls, except from inside the monitor.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(request_monitor monitor) = 0;

    /// Registers a handler that is asked before all others, as long as somebody holds the
    /// result. Throws exceptions::error for a path with a misplaced "*".
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterRequestRedirectionHandler(const std::string& path, const request_handler& handler,
                                      const std::string& description) = 0;

    /// Does nothing: requests run no tasks.
    virtual void WaitForTasks() = 0;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IRequestRouting> {
    static std::string text() { return "class zel::event_routing::IRequestRouting"; }
};
