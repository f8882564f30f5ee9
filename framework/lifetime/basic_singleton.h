// One object per library, made by its first user and ended by the library's
// end-of-life actions.
//
// The cell stands in static storage and has neither a constructor nor a
// destructor with work in it:
//
//     constinit basic_singleton<registry, const_longevity_traits<201008>> cell;
//     cell.read([](registry& r) { r.look_up(name); });
//
// While one thread makes the object the others wait for it. Whoever asks again
// from inside the making gets an exception instead of waiting for itself. Once
// the object has ended it is never made again.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/lifetime/end_of_life.h"

#include <platform/critical_section.h>
#include <platform/diagnostics.h>
#include <platform/event.h>

#include <cstddef>
#include <new>
#include <optional>
#include <utility>

namespace zel::lifetime {

class ZEL_EXPORT object_already_destroyed : public exceptions::error {
public:
    [[gnu::noinline]] object_already_destroyed()
        : error("Object was already destroyed", __builtin_return_address(0)) {}
};

class ZEL_EXPORT object_creation_error : public exceptions::error {
public:
    [[gnu::noinline]] object_creation_error()
        : error("Object creation failed", __builtin_return_address(0)) {}
};

template <int Longevity>
struct const_longevity_traits {
    static constexpr int longevity = Longevity;
};

/// The type-independent part of the cell: who makes the object, who waits.
class singleton_cell {
public:
    constexpr singleton_cell() noexcept = default;

protected:
    enum class state { not_created, creating, created, failed, destroyed };

    bool is_created() const ZEL_REQUIRES(guard_) { return state_ == state::created; }
    /// True for the one caller that has to make the object. Returns false once
    /// it is there; throws what every caller gets when it is not to be had.
    bool claim_creation();
    /// The action is what ends the object.
    void creation_succeeded(std::unique_ptr<end_of_life_action> action) noexcept;
    /// The failure is null when the making ended without an exception to keep, the action,
    /// which forgets it, when there was no memory.
    void creation_failed(std::exception_ptr failure,
                         std::unique_ptr<end_of_life_action> action) noexcept;
    /// What the cell held before; afterwards nobody gets at the object.
    state leave_for_good() noexcept;

    // Guards everything here and, while `read` runs, keeps the object.
    // Recursive: a reader may come back to the same cell.
    platform::critical_section guard_;

private:
    void require_created() const ZEL_REQUIRES(guard_);
    void end_creation(state reached, std::unique_ptr<end_of_life_action> action) noexcept
        ZEL_REQUIRES(guard_);

    state state_ ZEL_GUARDED_BY(guard_) = state::not_created;
    platform::thread_id creator_ ZEL_GUARDED_BY(guard_) = platform::no_thread;
    std::exception_ptr* failure_ ZEL_GUARDED_BY(guard_) = nullptr;
    platform::event creation_ended_{platform::reset_mode::manual, false};
};

template <class T, class Longevity>
class basic_singleton : public singleton_cell {
public:
    constexpr basic_singleton() noexcept = default;

    /// Runs the reader on the object, made first if need be, and returns its
    /// result. The object does not end meanwhile, so readers must be short.
    template <class Reader>
    auto read(Reader&& reader) {
        for (;;) {
            {
                platform::scoped_lock inside(guard_);
                if (is_created())
                    return reader(object());
            }
            if (claim_creation())
                create();
        }
    }

    /// The same for an object that is there; makes none and throws nothing itself.
    template <class Reader>
    auto read_if_created(Reader&& reader) -> std::optional<decltype(reader(std::declval<T&>()))> {
        platform::scoped_lock inside(guard_);
        if (!is_created())
            return std::nullopt;
        return reader(object());
    }

private:
    class ending final : public end_of_life_action {
    public:
        ending(basic_singleton& cell, int longevity) noexcept
            : end_of_life_action(longevity), cell_(cell) {}
        void run() override { cell_.end(); }

    private:
        basic_singleton& cell_;
    };

    void create() {
        std::unique_ptr<end_of_life_action> action;
        std::exception_ptr failure;
        // Runs also when the thread is being cancelled: the others must not wait on.
        struct finish {
            basic_singleton& cell;
            std::unique_ptr<end_of_life_action>& action;
            std::exception_ptr& failure;
            bool made = false;
            ~finish() {
                if (made) {
                    cell.creation_succeeded(std::move(action));
                } else {
                    // The failure stays for every later caller, to the very end.
                    action.reset(new (std::nothrow) ending(cell, everything));
                    cell.creation_failed(failure, std::move(action));
                }
            }
        } at_end{*this, action, failure};
        failure = platform::guarded([&] {
            action = std::make_unique<ending>(*this, Longevity::longevity);
            ::new (static_cast<void*>(storage_)) T();
            at_end.made = true;
        });
    }

    void end() {
        if (leave_for_good() != state::created)
            return;
        // An object that refuses to end stays as it is, for those who hold parts of it.
        if constexpr (requires { object().end(); })
            object().end();
        object().~T();
    }

    T& object() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }

    alignas(T) std::byte storage_[sizeof(T)] = {};
};

} // namespace zel::lifetime
