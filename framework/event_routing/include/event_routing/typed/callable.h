// What a handler is made of: a callable of the user, and the checks that meet a wrong one
// with one sentence of the compiler.
#pragma once

#include <event_routing/routing_parameters.h>

#include <framework/exceptions/exceptions.h>
#include <framework/serialization/missing_form.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

namespace zel::event_routing {

/// What a message carries beside its payload. Good until the callable returns.
struct message_head {
    const std::string& path;              ///< as the handler of the service is given it
    const routing_parameters& parameters; ///< likewise
};

namespace detail {

/// A callable of these arguments, with a message_head behind them if it wants one.
template <class Callable, class... Arguments>
concept callable_with = std::invocable<Callable&, Arguments...> ||
    std::invocable<Callable&, Arguments..., const message_head&>;

template <class Callable, class... Arguments>
requires callable_with<Callable, Arguments...>
decltype(auto) call_with(Callable& callable, const message_head& head, Arguments&&... arguments) {
    if constexpr (std::invocable<Callable&, Arguments...>)
        return std::invoke(callable, std::forward<Arguments>(arguments)...);
    else
        return std::invoke(callable, std::forward<Arguments>(arguments)..., head);
}

template <class Callable, class... Arguments>
using result_of_call = decltype(call_with(
    std::declval<Callable&>(), std::declval<const message_head&>(), std::declval<Arguments>()...));

/// Throws exceptions::error that names the maker of the handler for a null pointer, an empty
/// std::function and its like: each message would fail at it.
template <class Callable>
void require_callable(const char* maker, const Callable& callable) {
    // What cannot be made of nullptr is never empty; a lambda would only turn into a pointer
    // for the comparison.
    if constexpr (std::constructible_from<Callable, std::nullptr_t> &&
                  requires { static_cast<bool>(callable == nullptr); })
        if (callable == nullptr)
            throw exceptions::error(std::string(maker) + ": the callable is empty.");
}

/// Whether all are payload types.
template <class... Types>
inline constexpr bool are_payload_types = (serialization::detail::is_payload_type<Types> && ...);

/// Where are_payload_types is false: a sentence for each that is none.
template <class... Types>
void refuse_payload_types() {
    const auto refuse = []<class T>(std::type_identity<T>) {
        if constexpr (!serialization::detail::is_payload_type<T>)
            serialization::detail::refuse_payload_type<T>();
    };
    (refuse(std::type_identity<Types>()), ...);
}

} // namespace detail

} // namespace zel::event_routing
