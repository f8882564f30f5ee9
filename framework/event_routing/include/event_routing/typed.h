// C++ types in place of payloads: a layer on top of the three services, which stay whole
// beside it.
//
//     using Check = Request<bool, std::string>; // a word in, whether it is spelled well out
//
//     auto cookie = requests->RegisterRequestHandler(
//         "spelling.check", 0,
//         Check::RequestHandler([](const std::string& word) { return knows(word); }),
//         "dictionary");
//     if (const auto answer = Check::Ask(*requests, "spelling.check", "word"))
//         show(*answer.value);
//
// All types are those that payloads may have (payload.h tells how a type of your own is
// declared). They are registered when a handler or a payload is made. What conversions
// throw reaches whoever runs them: a sender, or the service that runs a handler.
#pragma once

#include <event_routing/event_routing.h>
#include <event_routing/exceptions.h>
#include <event_routing/request_routing.h>
#include <event_routing/snowball_routing.h>

#include <framework/serialization/payload.h>

#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zel::event_routing {

// --- Requests ----------------------------------------------------------------

/// What a typed request comes back with: a value, or a payload that says what went wrong,
/// or neither when nobody has processed it. With both, the error wins.
template <class Output>
struct typed_answer {
    std::optional<Output> value; ///< what the handler has returned
    request_answer error;        ///< null unless a handler has left one

    /// Whether there is a value.
    explicit operator bool() const noexcept { return value.has_value(); }
};

/// Makes a request handler of a callable that takes the elements of `InputData`, a tuple.
/// It declines data of another type. The answer is an `OutputData`, a pair whose first
/// member the callable returns: as it is, as an optional whose absence declines, or as a
/// typed_answer, which declines when it is empty. Several threads may call it at once.
template <class InputData, class OutputData, class Callable>
class CustomRequestHandler {
public:
    /// Keeps the callable.
    explicit CustomRequestHandler(Callable callable) : callable_(std::move(callable)) {}

    /// Throws data_type_not_registered for an unknown OutputData.
    bool operator()(const std::string& path, const request_data& data, request_answer& response,
                    request_answer& error_response, const routing_parameters& parameters) {
        InputData scratch;
        const InputData* const input = serialization::GetDataValue(data, scratch);
        if (!input)
            return false;
        const request_answer before = response;
        OutputData* const output = serialization::MakeDataValue<OutputData>(response);
        if (!output)
            throw data_type_not_registered("Request", path, parameters,
                                           std::string(kept_type_name<OutputData>()));
        typed_answer<value> answer = answer_of(std::apply(callable_, *input));
        if (answer)
            output->first = *std::move(answer.value);
        else
            response = before;
        if (answer.error)
            error_response = answer.error;
        return answer || answer.error;
    }

private:
    using value = typename OutputData::first_type;

    template <class Result>
    static typed_answer<value> answer_of(Result&& result) {
        using plain = std::remove_cvref_t<Result>;
        if constexpr (std::is_same_v<plain, typed_answer<value>>)
            return std::forward<Result>(result);
        else if constexpr (std::is_same_v<plain, std::optional<value>>)
            return {std::forward<Result>(result), nullptr};
        else
            return {value(std::forward<Result>(result)), nullptr};
    }

    Callable callable_;
};

/// A kind of request: what goes in and what comes out.
template <class Output, class... Inputs>
struct Request {
    using input_data = std::tuple<Inputs...>;            ///< the type of its data
    using output_data = std::pair<Output, std::tuple<>>; ///< the type of its answer

    /// For RegisterRequestHandler and its like. See CustomRequestHandler.
    template <class Callable>
    static request_handler RequestHandler(Callable callable) {
        serialization::register_data_type<input_data>();
        serialization::register_data_type<output_data>();
        return CustomRequestHandler<input_data, output_data, Callable>(std::move(callable));
    }

    /// Sends a request; runs its handlers on the calling thread and throws what SendRequest
    /// throws. Throws exceptions::error for an answer of another type.
    static typed_answer<Output> Ask(IRequestRouting& requests, const std::string& path,
                                    const Inputs&... inputs,
                                    const routing_parameters& parameters = {}) {
        serialization::register_data_type<output_data>();
        request_answer response;
        request_answer error_response;
        const bool processed =
            requests.SendRequest(path, serialization::make_payload(input_data(inputs...)), response,
                                 error_response, parameters);
        // Not processed without an exception: suppressed, or an error.
        if (!processed && parameters.contains("supress_not_processed_exception"))
            return {};
        if (error_response && error_response->GetData())
            return {std::nullopt, error_response};
        output_data scratch;
        const output_data* const output = serialization::GetDataValue(response, scratch);
        if (!output)
            throw exceptions::error("The answer to request '" + path + "' is no '" +
                                    std::string(kept_type_name<output_data>()) + "'.");
        return {output->first, nullptr};
    }
};

// --- Snowballs ---------------------------------------------------------------

/// A kind of snowball: what goes along and what grows.
template <class Result, class Payload = std::tuple<>>
struct Snowball {
    /// Makes a handler of a callable that changes its first argument:
    /// `void(Result& so_far, const Payload&)`. A pass with data of another type, or whose
    /// result has another type, goes by it. No data are as good as an empty tuple.
    template <class Callable>
    static snowball_handler SnowballHandler(Callable callable) {
        serialization::register_data_type<Payload>();
        serialization::register_data_type<Result>();
        return [callable = std::move(callable)](const std::string&, const snowball_data& data,
                                                snowball_result& response, snowball_result&,
                                                const routing_parameters&) mutable {
            Payload scratch;
            const bool is_empty = !data && std::is_same_v<Payload, std::tuple<>>;
            const Payload* const payload =
                is_empty ? &scratch : serialization::GetDataValue(data, scratch);
            if (!payload)
                return;
            snowball_result next = take_over(response);
            if (!next)
                return;
            const auto grown = next->GetData();
            callable(dynamic_cast<serialization::SerializableData<Result>&>(*grown).MutableValue(),
                     *payload);
            response = std::move(next);
        };
    }

    /// Sends a snowball that begins with `start`; runs its handlers on the calling thread
    /// and throws what they throw. What they leave in `error_response` is not looked at.
    static Result Send(ISnowballRouting& snowballs, const std::string& path, const Payload& payload,
                       Result start = {}, const routing_parameters& parameters = {}) {
        snowball_result response = serialization::make_payload(std::move(start));
        snowball_result error_response;
        snowballs.SendSnowball(path, serialization::make_payload(payload), response, error_response,
                               parameters);
        Result scratch;
        const Result* const grown = serialization::GetDataValue(response, scratch);
        if (!grown)
            throw exceptions::error("The result of snowball '" + path + "' is no '" +
                                    std::string(kept_type_name<Result>()) + "'.");
        return *grown;
    }

private:
    // The result so far in a holder that nobody else sees; null for another type's. One
    // that only the pass holds grows where it is: a copy for each handler would make a pass
    // quadratic.
    static snowball_result take_over(const snowball_result& so_far) {
        if (!so_far)
            return serialization::make_payload(Result());
        Result scratch;
        const Result* const value = serialization::GetDataValue(so_far, scratch);
        if (!value)
            return nullptr;
        const bool is_ours = so_far.use_count() == 1 && so_far->GetData().use_count() == 2;
        if (is_ours && value != &scratch)
            return so_far;
        return serialization::make_payload(*value);
    }
};

// --- Events ------------------------------------------------------------------

/// A kind of event: what is broadcast. Handlers pass over data of another type.
template <class Payload>
struct Event {
    /// Of a callable `bool(const Payload&)`. Data of another type counts as false.
    template <class Callable>
    static synchronous_event_part SynchronousPart(Callable callable) {
        serialization::register_data_type<Payload>();
        return [callable = std::move(callable)](const std::string&, const event_data& data,
                                                const routing_parameters&) mutable -> bool {
            Payload scratch;
            const Payload* const payload = serialization::GetDataValue(data, scratch);
            return payload && callable(*payload);
        };
    }

    /// Of a callable `void(const Payload&)`.
    template <class Callable>
    static asynchronous_event_part AsynchronousPart(Callable callable) {
        serialization::register_data_type<Payload>();
        return [callable = std::move(callable)](const std::string&, const event_data& data,
                                                const routing_parameters&) mutable {
            Payload scratch;
            if (const Payload* const payload = serialization::GetDataValue(data, scratch))
                callable(*payload);
        };
    }

    /// Throws what making the payload throws.
    static void Broadcast(IEventRouting& events, const std::string& paths, const Payload& payload,
                          const routing_parameters& parameters = {}) {
        events.BroadcastEvent(paths, serialization::make_payload(payload), parameters, nullptr);
    }
};

} // namespace zel::event_routing
