// Requests with C++ types (typed.h).
#pragma once

#include <event_routing/exceptions.h>
#include <event_routing/request_routing.h>
#include <event_routing/typed/callable.h>
#include <event_routing/typed/declined_data.h>
#include <event_routing/typed/typed_request_handler.h>

#include <framework/serialization/payload.h>

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zel::event_routing {

/// What a typed request comes back with: a value, or a payload that says what went wrong,
/// or neither when nobody has processed it. With both, the error wins.
template <class Output>
struct typed_answer {
    std::optional<Output> value; ///< what the handler has returned
    /// Null unless a handler has left one. One without data that a handler returns is none.
    request_answer error;

    /// Whether there is a value.
    explicit operator bool() const noexcept { return value.has_value(); }
};

/// The same of a request that has no output.
template <>
struct typed_answer<void> {
    bool is_done = false; ///< whether a handler has processed the request
    /// Null unless a handler has left one. One without data that a handler returns is none.
    request_answer error;

    /// Whether it is done.
    explicit operator bool() const noexcept { return is_done; }
};

namespace detail {

/// What a callable may return for a value of the type `Output`.
template <class Result, class Output>
concept answer_to_request = std::same_as<Result, Output> ||
    std::same_as<Result, std::optional<Output>> || std::same_as<Result, typed_answer<Output>> ||
    requires(void (&take)(Output), Result result) {
    take({std::move(result)});
};

template <class Result>
concept answer_without_output = std::is_void_v<Result> || std::same_as<Result, bool> ||
    std::same_as<Result, typed_answer<void>>;

/// Whether the callable makes a handler of requests.
template <class Callable, class Output, class... Inputs>
struct request_callable {
    static constexpr bool is_kept = std::copy_constructible<Callable>;
    static constexpr bool is_called = is_kept && callable_with<Callable, const Inputs&...>;
    static constexpr bool answers = [] {
        if constexpr (is_called) {
            using result = std::remove_cvref_t<result_of_call<Callable, const Inputs&...>>;
            if constexpr (std::is_void_v<Output>)
                return answer_without_output<result>;
            else
                return answer_to_request<result, Output>;
        }
        return false;
    }();
    static constexpr bool fits = is_kept && is_called && answers;

    /// Where it does not: the sentence of the compiler that says why.
    static void refuse() {
        static_assert(is_kept, "a callable that handles requests is copied, so it and what it "
                               "captures must be copyable");
        static_assert(!is_kept || is_called,
                      "a callable that handles requests takes the inputs of the request, by value "
                      "or as references to const, and a message_head behind them if it wants");
        static_assert(!is_called || answers,
                      "a callable that handles requests returns the output, an optional or a "
                      "typed_answer of it, or what initialises it in braces, without narrowing; "
                      "without an output nothing, a bool or a typed_answer<void>");
    }
};

template <class InputData>
std::string_view type_wanted_instead_of(const request_data& data) {
    return serialization::is_data_value_type<InputData>(data) ? std::string_view()
                                                              : kept_type_name<InputData>();
}

} // namespace detail

/// Makes a request handler of a callable that takes the elements of `InputData`, a tuple,
/// and a message_head behind them if it wants. It declines data of another type. The answer
/// is an `OutputData`, a pair whose first member the callable returns: as it is, as what
/// initialises it in braces, as an optional whose absence declines, or as a typed_answer,
/// which declines when it is empty. With `void` in place of OutputData the response is left
/// as it is, and the callable returns nothing, whether it has processed the request, or a
/// typed_answer. Several threads may call it at once.
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
        if (!input) {
            declined_.tell(path, kept_type_name<InputData>(), data);
            return false;
        }
        const message_head head{path, parameters};
        if constexpr (std::is_void_v<OutputData>)
            return leave(done(head, *input), error_response);
        else
            return answer(head, *input, response, error_response);
    }

private:
    bool answer(const message_head& head, const InputData& input, request_answer& response,
                request_answer& error_response) {
        using value = typename OutputData::first_type;
        request_answer made_answer; // the response changes with an answer only
        OutputData* const output = serialization::MakeDataValue<OutputData>(made_answer);
        if (!output)
            throw data_type_not_registered("Request", head.path, head.parameters,
                                           std::string(kept_type_name<OutputData>()));
        typed_answer<value> made = answer_of<value>(call(head, input));
        if (made) {
            output->first = *std::move(made.value);
            response = std::move(made_answer);
        }
        return leave(made, error_response);
    }

    typed_answer<void> done(const message_head& head, const InputData& input) {
        using result = decltype(call(head, input));
        if constexpr (std::is_void_v<result>)
            return call(head, input), typed_answer<void>{true, nullptr};
        else if constexpr (std::is_same_v<std::remove_cvref_t<result>, bool>)
            return {call(head, input), nullptr};
        else
            return call(head, input);
    }

    template <class Answer>
    static bool leave(const Answer& made, request_answer& error_response) {
        const bool has_error = made.error && made.error->GetData(); // Ask sees no other
        if (has_error)
            error_response = made.error;
        return made || has_error;
    }

    decltype(auto) call(const message_head& head, const InputData& input) {
        return std::apply(
            [&](const auto&... inputs) -> decltype(auto) {
                return detail::call_with(callable_, head, inputs...);
            },
            input);
    }

    template <class Value, class Result>
    static typed_answer<Value> answer_of(Result&& result) {
        using plain = std::remove_cvref_t<Result>;
        if constexpr (std::is_same_v<plain, typed_answer<Value>>) {
            return std::forward<Result>(result);
        } else if constexpr (std::is_same_v<plain, std::optional<Value>> ||
                             std::is_same_v<plain, Value>) {
            return {std::forward<Result>(result), nullptr};
        } else {
            Value value = {std::forward<Result>(result)};
            return {std::move(value), nullptr};
        }
    }

    Callable callable_;
    detail::declined_data_log declined_;
};

/// A kind of request: what goes in and what comes out, or `void` for nothing.
template <class Output, class... Inputs>
struct Request {
    using input_data = std::tuple<Inputs...>; ///< the type of its data
    /// The type of its answer.
    using output_data =
        std::conditional_t<std::is_void_v<Output>, void, std::pair<Output, std::tuple<>>>;

    /// For RegisterRequestHandler and its like. See CustomRequestHandler. Throws
    /// exceptions::error for an empty callable.
    template <class Callable>
    [[nodiscard]] static request_handler RequestHandler(Callable callable) {
        using check = detail::request_callable<Callable, Output, Inputs...>;
        if constexpr (!has_payload_types) {
            detail::refuse_payload_types<input_data, response_data>();
        } else if constexpr (!check::fits) {
            check::refuse();
        } else {
            detail::require_callable("Request::RequestHandler", callable);
            register_types();
            return detail::typed_request_handler(
                CustomRequestHandler<input_data, output_data, Callable>(std::move(callable)),
                &detail::type_wanted_instead_of<input_data>);
        }
        return nullptr;
    }

    /// Sends a request; runs its handlers on the calling thread and throws what SendRequest
    /// throws. Throws exceptions::error for an answer of another type.
    static typed_answer<Output> Ask(IRequestRouting& requests, const std::string& path,
                                    const Inputs&... inputs,
                                    const routing_parameters& parameters = {}) {
        if constexpr (has_payload_types) {
            register_types();
            request_answer response;
            request_answer error_response;
            const bool processed =
                requests.SendRequest(path, serialization::make_payload(input_data(inputs...)),
                                     response, error_response, parameters);
            // Not processed without an exception: suppressed, or an error.
            if (!processed && parameters.contains(parameter::suppress_not_processed_exception))
                return {};
            if (error_response && error_response->GetData())
                return {{}, error_response};
            if constexpr (std::is_void_v<Output>)
                return {true, nullptr};
            else
                return {value_of(response, path), nullptr};
        } else {
            detail::refuse_payload_types<input_data, response_data>();
            return {};
        }
    }

private:
    // The output needs a type only where there is one.
    using response_data = std::conditional_t<std::is_void_v<Output>, input_data, output_data>;

    static constexpr bool has_payload_types = detail::are_payload_types<input_data, response_data>;

    static void register_types() {
        serialization::register_data_type<input_data>();
        serialization::register_data_type<response_data>();
    }

    static auto value_of(const request_answer& response, const std::string& path) {
        output_data scratch;
        const output_data* const output = serialization::GetDataValue(response, scratch);
        if (!output)
            throw exceptions::error("The answer to request '" + path + "' is no '" +
                                    std::string(kept_type_name<output_data>()) + "'.");
        return output->first;
    }
};

} // namespace zel::event_routing
