// Events with C++ types (typed.h).
#pragma once

#include <event_routing/event_routing.h>
#include <event_routing/typed/callable.h>
#include <event_routing/typed/declined_data.h>

#include <framework/serialization/payload.h>

#include <chrono>
#include <string>
#include <type_traits>
#include <utility>

namespace zel::event_routing {

namespace detail {

/// Whether the callable makes a part of a handler of events that returns a `Result`.
template <class Callable, class Result, class Payload>
struct event_callable {
    static constexpr bool is_kept = std::copy_constructible<Callable>;
    static constexpr bool is_called = is_kept && callable_with<Callable, const Payload&>;
    static constexpr bool returns_result = [] {
        if constexpr (is_called)
            return std::is_same_v<std::remove_cvref_t<result_of_call<Callable, const Payload&>>,
                                  Result>;
        return false;
    }();
    static constexpr bool fits = is_kept && is_called && returns_result;

    /// Where it does not: the sentence of the compiler that says why.
    static void refuse() {
        static_assert(is_kept, "a callable that handles events is copied, so it and what it "
                               "captures must be copyable");
        static_assert(!is_kept || is_called,
                      "a callable that handles events takes the payload, by value or as a "
                      "reference to const, and a message_head behind it if it wants");
        static_assert(!is_called || returns_result || std::is_void_v<Result>,
                      "a synchronous part returns a bool: whether the asynchronous one runs");
        static_assert(!is_called || returns_result || !std::is_void_v<Result>,
                      "an asynchronous part returns nothing");
    }
};

} // namespace detail

/// A kind of event: what is broadcast. Handlers pass over data of another type.
template <class Payload>
struct Event {
    /// Of a callable `bool(const Payload&)`, with a message_head behind it if it wants. Data
    /// of another type count as false. Throws exceptions::error for an empty callable.
    template <class Callable>
    [[nodiscard]] static synchronous_event_part SynchronousPart(Callable callable) {
        return part<synchronous_event_part, bool>("Event::SynchronousPart", std::move(callable));
    }

    /// Of a callable `void(const Payload&)`, with a message_head behind it if it wants. Throws
    /// exceptions::error for an empty callable.
    template <class Callable>
    [[nodiscard]] static asynchronous_event_part AsynchronousPart(Callable callable) {
        return part<asynchronous_event_part, void>("Event::AsynchronousPart", std::move(callable));
    }

    /// Throws what making the payload throws.
    static void Broadcast(IEventRouting& events, const std::string& paths, const Payload& payload,
                          const routing_parameters& parameters = {}) {
        events.BroadcastEvent(paths, serialization::make_payload(payload), parameters, nullptr);
    }

    /// Broadcasts later, once for all calls with this path that come within the delay of the
    /// first: the latest payload, with parameter::cumulative_event_count. See
    /// BroadcastCumulativeEvent. Throws what making the payload throws.
    static void BroadcastCumulative(IEventRouting& events, std::chrono::microseconds delay,
                                    const std::string& paths, const Payload& payload,
                                    const routing_parameters& parameters = {}) {
        events.BroadcastCumulativeEvent({.infinite = false, .microseconds = delay.count()}, paths,
                                        serialization::make_payload(payload), parameters, nullptr);
    }

private:
    template <class Part, class Result, class Callable>
    static Part part(const char* maker, Callable callable) {
        using check = detail::event_callable<Callable, Result, Payload>;
        if constexpr (!detail::are_payload_types<Payload>) {
            detail::refuse_payload_types<Payload>();
            return nullptr;
        } else if constexpr (!check::fits) {
            check::refuse();
            return nullptr;
        } else {
            detail::require_callable(maker, callable);
            serialization::register_data_type<Payload>();
            return [callable = std::move(callable), declined = detail::declined_data_log()](
                       const std::string& path, const event_data& data,
                       const routing_parameters& parameters) mutable -> Result {
                Payload scratch;
                if (const Payload* const payload = serialization::GetDataValue(data, scratch))
                    return detail::call_with(callable, {path, parameters}, *payload);
                declined.tell(path, kept_type_name<Payload>(), data);
                return Result();
            };
        }
    }
};

} // namespace zel::event_routing
