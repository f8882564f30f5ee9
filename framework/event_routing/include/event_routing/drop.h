// Dropping the cookie of a handler with more waiting, or with a limit to it.
//
//     drop_and_wait(cookie); // no call of the handler runs on another thread any more
//
//     if (const auto left = drop_within(cookie, {false, 2'000'000})) // two seconds
//         log("still running: " + left.text());                      // cookie is still there
//
// To reset the last reference to a cookie waits for asynchronous parts, without a limit, and
// not for synchronous parts on other threads. These functions wait for all calls: both parts
// of a handler of events, the calls of one of requests or snowballs. In either case no call
// begins any more once they were asked.
//
// A thread that is itself inside of a call of the handler must not wait for that call.
// drop_within then waits for nobody, and tells of the calls, the thread's own among them.
// drop_and_wait does what a reset does there: inside of an asynchronous part, a request or a
// snowball it waits for nobody; inside of a synchronous part it waits for the asynchronous
// parts on other threads. Whoever waits must hold nothing that such a call waits for.
#pragma once

#include <framework/exceptions/exceptions.h>
#include <framework/module_interface/version_check.h>
#include <framework/threading/universal_timeout.h>
#include <tasklib/keep_registered.h>

#include <cstdint>
#include <memory>
#include <string>

namespace zel::event_routing {

/// What of a handler was still running when the limit had passed.
struct running_calls {
    std::string registration;            ///< its path, ", " and its description
    std::uint32_t synchronous_parts = 0; ///< of a handler of events
    std::uint32_t other_calls = 0;       ///< asynchronous parts, or calls of other handlers

    /// Whether anything was.
    explicit operator bool() const noexcept { return synchronous_parts + other_calls > 0; }
    /// For people: "a.b, title bar: 1 synchronous part, 2 other calls".
    std::string text() const {
        return registration + ": " + std::to_string(synchronous_parts) + " synchronous part" +
               (synchronous_parts == 1 ? "" : "s") + ", " + std::to_string(other_calls) +
               " other call" + (other_calls == 1 ? "" : "s");
    }
};

/// Stands beside keep_registered in the cookie of a handler; the functions below find it there.
class ZEL_EXPORT IDroppable {
public:
    static constexpr std::int32_t interface_version = 1;
    /// Of the object; the functions below refuse another than theirs.
    virtual std::int32_t GetDroppableVersion() const { return interface_version; }

    /// Path, ", " and description.
    virtual std::string GetRegistration() const = 0;
    /// Takes the handler out, if it is still there, and waits for its calls. By one thread at
    /// a time.
    virtual running_calls DropWithin(threading::universal_timeout limit) = 0;

protected:
    ~IDroppable() = default;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IDroppable> {
    static std::string text() { return "class zel::event_routing::IDroppable"; }
};

namespace zel::event_routing {

namespace detail {

inline IDroppable& droppable_of(const std::shared_ptr<tasklib::keep_registered>& cookie) {
    auto* const found = dynamic_cast<IDroppable*>(cookie.get());
    if (!found)
        throw exceptions::error("The cookie is not that of a handler of events, requests or "
                                "snowballs, so it can only be reset.");
    zel::detail::require_version(type_name<IDroppable>(), IDroppable::interface_version,
                                 found->GetDroppableVersion(), *cookie);
    if (cookie.use_count() != 1)
        throw exceptions::error("The cookie of '" + found->GetRegistration() +
                                "' has other owners, for whom it stays registered.");
    return *found;
}

} // namespace detail

/// Takes a handler out and waits, at most for so long, until none of its calls runs any more;
/// from inside of one it does not wait. If none runs, the cookie is reset and the result is
/// false. Else the handler gets no
/// calls any more and the cookie stays with the caller, who may ask again, or reset it, which
/// waits as it always does. A null cookie is nothing to drop.
///
/// Throws exceptions::error, and leaves everything as it was, for a cookie with other owners
/// (one that a window keeps, for instance) and for one that is not of a handler: a monitor's.
[[nodiscard]] inline running_calls drop_within(std::shared_ptr<tasklib::keep_registered>& cookie,
                                               threading::universal_timeout limit) {
    if (!cookie)
        return {};
    running_calls left = detail::droppable_of(cookie).DropWithin(limit);
    if (!left)
        cookie.reset();
    return left;
}

/// The same without a limit; the cookie is null afterwards, also where a call of the handler
/// itself asked.
inline void drop_and_wait(std::shared_ptr<tasklib::keep_registered>& cookie) {
    if (drop_within(cookie, {}))
        cookie.reset();
}

} // namespace zel::event_routing
