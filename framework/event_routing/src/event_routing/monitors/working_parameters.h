// The parameters that the handlers of one message are given: the caller's map, until
// something has to change in it; then a copy, made once.
#pragma once

#include <event_routing/routing_parameters.h>

#include <optional>

namespace zel::event_routing::impl {

class working_parameters {
public:
    explicit working_parameters(const routing_parameters& callers) noexcept : callers_(callers) {}
    working_parameters(const working_parameters&) = delete;
    working_parameters& operator=(const working_parameters&) = delete;

    const routing_parameters& operator*() const noexcept { return copy_ ? *copy_ : callers_; }
    const routing_parameters* operator->() const noexcept { return &**this; }

    routing_parameters& copy() {
        if (!copy_)
            copy_ = callers_;
        return *copy_;
    }

    /// True if the parameter was there.
    bool erase(const std::string& key) {
        if (!(*this)->contains(key))
            return false;
        copy().erase(key);
        return true;
    }

private:
    const routing_parameters& callers_;
    std::optional<routing_parameters> copy_;
};

} // namespace zel::event_routing::impl
