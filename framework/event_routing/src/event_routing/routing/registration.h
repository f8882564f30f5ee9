// Registration cookies of the routing services.
//
// A cookie holds its service strongly and takes its handler out of the routing
// map when it is destroyed. In all services it holds the routing lock only for the
// unlinking, and gives it back before it waits for running calls (retirable.h). So a slow
// handler delays the release of its own cookie only.
#pragma once

#include "framework/event_routing/src/event_routing/routing/routing_map.h"
#include "framework/module_interface/standard_type_names.h"
#include "framework/threading/recursive_shared_mutex.h"

#include <event_routing/drop.h>
#include <platform/cancellation.h>
#include <tasklib/keep_registered.h>

#include <memory>
#include <string>

namespace zel::event_routing::impl {

/// Logs what kept a cookie from unregistering; throws nothing.
void report_unregistration_failure(const std::exception_ptr& failure, std::string (*cookie_type)());

class KeepRegisteredWithDescr : public tasklib::keep_registered {
public:
    /// Shown in diagnostics: registration path, ", ", the registrant's description.
    const std::string& description() const noexcept { return description_; }

protected:
    explicit KeepRegisteredWithDescr(std::string description)
        : description_(std::move(description)) {}

private:
    std::string description_;
};

/// The cookie of a handler in a map of `Node`s; `Owner` offers `Unregister`.
template <class Owner, class Node>
class KeepRegistered : public KeepRegisteredWithDescr {
public:
    using registration = typename Node::registration;

    KeepRegistered(std::shared_ptr<Owner> owner, registration position, std::string description)
        : KeepRegisteredWithDescr(std::move(description)), owner_(std::move(owner)),
          registration_(position) {}

    ~KeepRegistered() override {
        const platform::no_cancellation to_the_end;
        try {
            if (removed_)
                removed_->finish(owner_->threads());
            else
                owner_->Unregister(registration_);
        } catch (const std::exception&) {
            report_unregistration_failure(std::current_exception(), &own_type_name);
        }
        removed_.reset();
        owner_.reset(); // may be the last reference
    }

    /// The name by which the log calls this cookie.
    static std::string own_type_name();

protected:
    using handler = std::shared_ptr<typename Node::registered_handler>;

    Owner& owner() const noexcept { return *owner_; }
    /// The handler, out of the map and closed; the destructor has the rest to do.
    const handler& take_out() {
        if (!removed_)
            removed_ = owner_->take_out(registration_);
        return removed_;
    }

private:
    std::shared_ptr<Owner> owner_;
    registration registration_;
    handler removed_;
};

/// None for an infinite limit.
inline platform::wait_deadline moment_after(threading::universal_timeout limit) {
    constexpr std::int64_t longest = 1'000'000'000'000'000; // some thirty years
    if (limit.infinite)
        return {};
    return std::chrono::steady_clock::now() +
           std::chrono::microseconds(std::clamp<std::int64_t>(limit.microseconds, 0, longest));
}

/// The same with what the functions of drop.h ask of it: an interface beside that of the
/// cookies, whose own operations keep their places.
template <class Owner, class Node>
class DroppableRegistration final : public KeepRegistered<Owner, Node>, public IDroppable {
public:
    using KeepRegistered<Owner, Node>::KeepRegistered;

    std::string GetRegistration() const override { return this->description(); }
    running_calls DropWithin(threading::universal_timeout limit) override {
        const platform::no_cancellation to_the_end;
        const auto removed = this->take_out();
        thread_records& threads = this->owner().threads();
        if (!threads.is_inside(*removed))
            threads.wait_for_all_calls(*removed, moment_after(limit));
        const auto left = threads.calls_inside(*removed);
        return {this->description(), left.others, left.awaited};
    }
};

// The position type in the name is that of a linked list of the map's items.
template <class Owner, class Node>
std::string KeepRegistered<Owner, Node>::own_type_name() {
    const std::string item = type_name<Node>() + "::function_container_item";
    const std::string list = container_type_name("class std::list", item);
    const std::string position = template_type_name(
        "class std::_List_iterator",
        {template_type_name("class std::_List_val",
                            {template_type_name("struct std::_List_simple_types", {item})})});
    return template_type_name(
        "zel::event_routing::impl::KeepRegistered",
        {type_name<Owner>(), template_type_name("struct std::pair", {list + " *", position})});
}

/// A handler on its way into a map. Made before the routing lock is taken and
/// gone after it is given back: copying, refusing and destroying a callable are
/// the registrant's code. (One exception: a regular request handler whose announcement
/// fails goes under the lock, before anybody can reach it.) Throws exceptions::error for
/// a misplaced "*".
template <class Node>
struct prepared_handler {
    template <class Function, class AdditionalData>
    prepared_handler(const std::string& path, Function function, AdditionalData additional_data,
                     const std::string& description)
        : target(path), item(make_item(path, function, additional_data, description)),
          cookie_description(path + ", " + description) {}

    const registration_path target;
    const typename Node::function_container_item item;
    const std::string cookie_description;

private:
    template <class Function, class AdditionalData>
    static auto make_item(const std::string& path, Function& function,
                          AdditionalData& additional_data, const std::string& description) {
        const callable_code code = code_of(function, additional_data);
        return Node::make_item(std::move(function), std::move(additional_data), description, path,
                               code);
    }
};

/// Puts a handler into the map and returns its cookie; with an exception nothing
/// stays behind. The caller holds the routing lock exclusively.
template <class Owner, class Node>
std::shared_ptr<tasklib::keep_registered> register_handler(Owner& owner, Node& root,
                                                           const prepared_handler<Node>& handler) {
    auto self = owner.shared_from_this();
    const auto position = root.InsertHandler(handler.target, handler.item);
    try {
        return std::make_shared<DroppableRegistration<Owner, Node>>(std::move(self), position,
                                                                    handler.cookie_description);
    } catch (...) {
        Node::RemoveHandler(position);
        throw;
    }
}

/// Takes a handler out of its map. The caller retires it when the routing lock has
/// been given back.
template <class Node, class Lock>
std::shared_ptr<typename Node::registered_handler>
unlink_handler(Lock& routing_lock, typename Node::registration position) {
    threading::exclusive_lock_guard map_is_mine(routing_lock);
    return Node::RemoveHandler(position).record;
}

} // namespace zel::event_routing::impl
