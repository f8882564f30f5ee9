// A callable that can be taken away while others use it.
//
// This is the one place where routing services and their monitors let go of a callable:
//
//   - Users hold a `retirable` and make an `announced_call` each time they need the
//     callable. Holding a `retirable` does not keep the callable alive; a call does.
//   - A call says whether a removal waits for it, on other threads.
//   - `close` closes the callable, so that no call begins any more. `finish` waits for those
//     calls that have begun and are waited for, unless the thread is itself inside of such a
//     call, and ends the owner's use. `retire` is both. Between the two an owner may wait
//     for all calls, or for so long (`thread_records::wait_for_all_calls`).
//   - The callable is destroyed last, and no lock is held, because its destructor may do as
//     it likes: by `finish`, or by the last of the calls that had begun before and were not
//     waited for.
//   - Until it is destroyed it counts as a use of the images whose code it is, so these
//     stay mapped, however late that is.
//
// Nobody counts calls. A call writes into the record of its own thread which callable it is
// inside of, and a removal reads the records (thread_records.h):
//
//     a call                                  a removal
//     1 announces the callable                1 marks it as retired
//       light barrier                         2 heavy barrier
//     2 sees it retired? then leaves          3 under the guard: looks at all records, counts
//     3 runs it                                 the calls that are announced and marks each
//     4 announces nothing                     4 waits for those that it has to wait for
//       light barrier                         5 under the guard: ends its own use
//     5 sees it retired? then under the
//       guard: was it counted? ends its use
//
// Whoever ends the last use destroys the callable. The barriers make sure that of the
// steps 1 and 2 on the left and 1 and 3 on the right at least one sees the other, so a call
// that runs is counted; likewise 4 and 5 on the left, so a call that was counted ends its
// use. A call that was counted while it was about to leave at step 2 does the same.
#pragma once

#include "framework/event_routing/src/event_routing/routing/thread_records.h"

#include <platform/cancellation.h>
#include <platform/image_use.h>
#include <platform/process_barrier.h>

#include <optional>
#include <string_view>
#include <utility>

namespace zel::event_routing::impl {

/// Whose code a callable is, and what it is to the user. Two parts may be of two images.
struct callable_code {
    const char* kind = "";
    platform::image_handle image = platform::image_handle::none;
    platform::image_handle second_image = platform::image_handle::none;
};

template <class Callable>
class retirable : public retirable_base {
public:
    /// Name and note are those of its uses, and must outlive it.
    explicit retirable(Callable callable, const callable_code& code = {},
                       std::string_view name = {}, std::string_view note = {},
                       callable_role role = callable_role::handler)
        : retirable_base(role), use_(code.image, code.kind, name, note),
          second_use_(code.second_image == code.image ? platform::image_handle::none
                                                      : code.second_image,
                      code.kind, name, note),
          callable_(std::move(callable)) {}

    /// Once, by the owner.
    void retire(thread_records& threads) {
        threads.close(*this);
        finish(threads);
    }
    /// The second half; the first is that of the records.
    void finish(thread_records& threads) {
        if (!threads.is_inside_awaited(*this))
            threads.wait_for_awaited_calls(*this);
        if (threads.end_removal(*this))
            clear_up();
    }

    /// For the owner, before it is retired, and inside of a call.
    const Callable& callable() const noexcept { return *callable_; }

private:
    template <class>
    friend class announced_call;

    void end_call(thread_records& threads, call_place& place, removal_waits waited) noexcept {
        if (threads.end_call(place, *this, waited))
            clear_up();
    }

    void clear_up() noexcept {
        const platform::no_cancellation to_the_end;
        callable_.reset();
        use_.end();
        second_use_.end();
    }

    platform::image_use use_;
    platform::image_use second_use_;
    std::optional<Callable> callable_; // destroyed before its uses end
};

/// One use of the callable, for as long as it lives. Calls of one role are not nested in
/// one message.
template <class Callable>
class announced_call {
public:
    announced_call(const message_scope& message, removal_waits waits,
                   retirable<Callable>& target) noexcept
        : threads_(message.threads()), place_(message.frame().place_of(target.role())),
          waits_(waits), target_(target) {
        // Release: whoever finds the place changed sees what was done inside of the call
        // that was announced there before.
        place_.target.store(reinterpret_cast<std::uintptr_t>(&as_base(target)) |
                                static_cast<std::uintptr_t>(waits),
                            std::memory_order_release);
        platform::light_barrier();
        may_run_ = !target.is_retired();
    }
    // Inline also where the stack is unwound: the object would have to be in memory for that,
    // which takes a call longer than all the rest of its announcement.
    [[gnu::always_inline]] ~announced_call() {
        place_.target.store(0, std::memory_order_release);
        platform::light_barrier();
        if (target_.is_retired())
            target_.end_call(threads_, place_, waits_);
    }
    announced_call(const announced_call&) = delete;
    announced_call& operator=(const announced_call&) = delete;

    /// False when the callable was retired before.
    explicit operator bool() const noexcept { return may_run_; }
    const Callable& operator*() const noexcept { return target_.callable(); }
    const Callable* operator->() const noexcept { return &**this; }

private:
    static const retirable_base& as_base(const retirable<Callable>& target) noexcept {
        return target;
    }

    thread_records& threads_;
    call_place& place_;
    const removal_waits waits_;
    retirable<Callable>& target_;
    bool may_run_;
};

} // namespace zel::event_routing::impl
