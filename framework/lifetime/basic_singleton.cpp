#include "framework/lifetime/basic_singleton.h"

#include <utility>

namespace zel::lifetime {

bool singleton_cell::claim_creation() {
    for (;;) {
        {
            platform::scoped_lock inside(guard_);
            if (state_ == state::not_created) {
                state_ = state::creating;
                creator_ = platform::this_thread_id();
                return true;
            }
            if (state_ != state::creating) {
                require_created();
                return false;
            }
            if (creator_ == platform::this_thread_id())
                throw object_creation_error();
        }
        creation_ended_.wait();
    }
}

void singleton_cell::require_created() const {
    switch (state_) {
    case state::created:
        return;
    case state::failed:
        if (failure_)
            std::rethrow_exception(*failure_);
        throw object_creation_error();
    default:
        throw object_already_destroyed();
    }
}

void singleton_cell::creation_succeeded(std::unique_ptr<end_of_life_action> action) noexcept {
    platform::scoped_lock inside(guard_);
    end_creation(state::created, std::move(action));
}

void singleton_cell::creation_failed(std::exception_ptr failure,
                                     std::unique_ptr<end_of_life_action> action) noexcept {
    platform::scoped_lock inside(guard_);
    // Every later caller gets it, until the library ends.
    if (failure)
        failure_ = new (std::nothrow) std::exception_ptr(std::move(failure));
    end_creation(state::failed, std::move(action));
}

// The action first: whoever gets the object may end the library at once, and with it the
// object.
void singleton_cell::end_creation(state reached,
                                  std::unique_ptr<end_of_life_action> action) noexcept {
    if (action)
        add_end_of_life_action(std::move(action));
    state_ = reached;
    creator_ = platform::no_thread;
    creation_ended_.set();
}

singleton_cell::state singleton_cell::leave_for_good() noexcept {
    platform::scoped_lock inside(guard_);
    delete std::exchange(failure_, nullptr);
    return std::exchange(state_, state::destroyed);
}

} // namespace zel::lifetime
