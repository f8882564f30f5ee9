// Snowballs with C++ types (typed.h).
#pragma once

#include <event_routing/snowball_routing.h>
#include <event_routing/typed/callable.h>
#include <event_routing/typed/declined_data.h>

#include <framework/serialization/payload.h>

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zel::event_routing {

namespace detail {

/// Whether the callable makes a handler of snowballs.
template <class Callable, class Result, class Payload>
struct snowball_callable {
    static constexpr bool is_kept = std::copy_constructible<Callable>;
    static constexpr bool is_called = is_kept && callable_with<Callable, Result&, const Payload&>;
    // What binds to a temporary, a copy or a reference to const, would change nothing.
    static constexpr bool changes_result = !callable_with<Callable, Result, const Payload&>;
    static constexpr bool returns_nothing = [] {
        if constexpr (is_called)
            return std::is_void_v<result_of_call<Callable, Result&, const Payload&>>;
        return false;
    }();
    static constexpr bool fits = is_kept && is_called && changes_result && returns_nothing;

    /// Where it does not: the sentence of the compiler that says why.
    static void refuse() {
        static_assert(is_kept, "a callable that handles snowballs is copied, so it and what it "
                               "captures must be copyable");
        static_assert(!is_kept || is_called,
                      "a callable that handles snowballs takes the result as a reference, the "
                      "payload as a reference to const, and a message_head behind them if it "
                      "wants");
        static_assert(!is_called || changes_result,
                      "a callable that handles snowballs changes the result: it takes that as "
                      "Result& or auto&");
        static_assert(!is_called || !changes_result || returns_nothing,
                      "a callable that handles snowballs returns nothing: it changes the result "
                      "that it is given");
    }
};

} // namespace detail

/// A kind of snowball: what goes along and what grows.
template <class Result, class Payload = std::tuple<>>
struct Snowball {
    /// Makes a handler of a callable that changes its first argument:
    /// `void(Result& so_far, const Payload&)`, with a message_head behind them if it wants.
    /// A pass with data of another type, or whose result has another type, goes by it. No
    /// data are as good as an empty tuple. Throws exceptions::error for an empty callable.
    template <class Callable>
    [[nodiscard]] static snowball_handler SnowballHandler(Callable callable) {
        using check = detail::snowball_callable<Callable, Result, Payload>;
        if constexpr (!has_payload_types) {
            detail::refuse_payload_types<Payload, Result>();
            return nullptr;
        } else if constexpr (!check::fits) {
            check::refuse();
            return nullptr;
        } else {
            detail::require_callable("Snowball::SnowballHandler", callable);
            serialization::register_data_type<Payload>();
            serialization::register_data_type<Result>();
            return [callable = std::move(callable), declined = detail::declined_data_log()](
                       const std::string& path, const snowball_data& data,
                       snowball_result& response, snowball_result&,
                       const routing_parameters& parameters) mutable {
                Payload scratch;
                const bool is_empty = !data && std::is_same_v<Payload, std::tuple<>>;
                const Payload* const payload =
                    is_empty ? &scratch : serialization::GetDataValue(data, scratch);
                if (!payload)
                    return declined.tell(path, kept_type_name<Payload>(), data);
                snowball_result next = take_over(response);
                if (!next)
                    return declined.tell(path, kept_type_name<Result>(), response);
                const auto grown = next->GetData();
                auto& so_far =
                    dynamic_cast<serialization::SerializableData<Result>&>(*grown).MutableValue();
                detail::call_with(callable, {path, parameters}, so_far, *payload);
                response = std::move(next);
            };
        }
    }

    /// Sends a snowball that begins with `start`; runs its handlers on the calling thread
    /// and throws what they throw. What they leave in `error_response` is not looked at.
    static Result Send(ISnowballRouting& snowballs, const std::string& path, const Payload& payload,
                       Result start = {}, const routing_parameters& parameters = {}) {
        if constexpr (has_payload_types) {
            snowball_result response = serialization::make_payload(std::move(start));
            snowball_result error_response;
            snowballs.SendSnowball(path, serialization::make_payload(payload), response,
                                   error_response, parameters);
            Result scratch;
            const Result* const grown = serialization::GetDataValue(response, scratch);
            if (!grown)
                throw exceptions::error("The result of snowball '" + path + "' is no '" +
                                        std::string(kept_type_name<Result>()) + "'.");
            return *grown;
        } else {
            detail::refuse_payload_types<Payload, Result>();
            return start;
        }
    }

private:
    static constexpr bool has_payload_types = detail::are_payload_types<Payload, Result>;

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

} // namespace zel::event_routing
