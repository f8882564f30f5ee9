#include <platform/event.h>
#include <platform/wait_on_address.h>

#include <array>
#include <vector>

namespace zel::platform {

// One sleeping thread. Whoever changes the word from `waiting` first decides how
// its wait ends: an event with its index, or the waiter itself with `gave_up`.
class event::waiter {
public:
    bool claim(std::uint32_t outcome) noexcept {
        std::uint32_t expected = waiting;
        // Release and acquire: what the setter did before is seen by the waiter.
        return word_.compare_exchange_strong(expected, outcome, std::memory_order_acq_rel);
    }
    bool claimed() const noexcept { return word_.load(std::memory_order_acquire) != waiting; }
    std::uint32_t outcome() const noexcept { return word_.load(std::memory_order_acquire); }

    void sleep(wait_deadline deadline) noexcept {
        while (!claimed()) {
            if (!wait_on_address(word_, waiting, deadline)) {
                claim(gave_up);
                return;
            }
        }
    }
    void wake() noexcept { wake_one(word_); }

    static constexpr std::uint32_t waiting = 0xFFFFFFFF;
    static constexpr std::uint32_t gave_up = 0xFFFFFFFE;

private:
    std::atomic<std::uint32_t> word_{waiting};
};

// Stands in an event's list while a thread waits for it.
struct event::link {
    waiter* owner = nullptr;
    std::uint32_t index = 0;
    bool linked = false;
    link* next = nullptr;
    link* previous = nullptr;
};

void event::push(link& node) noexcept {
    node.linked = true;
    node.next = nullptr;
    node.previous = last_;
    (last_ ? last_->next : first_) = &node;
    last_ = &node;
}

void event::unlink(link& node) noexcept {
    (node.previous ? node.previous->next : first_) = node.next;
    (node.next ? node.next->previous : last_) = node.previous;
    node.linked = false;
}

void event::set() noexcept {
    // A waiter leaves only through the guard, so it is still there to be woken.
    scoped_lock inside(guard_);
    signalled_ = true;
    while (first_) {
        link& node = *first_;
        unlink(node);
        if (!node.owner->claim(node.index))
            continue;
        node.owner->wake();
        if (mode_ == reset_mode::automatic) {
            signalled_ = false;
            return;
        }
    }
}

void event::reset() noexcept {
    scoped_lock inside(guard_);
    signalled_ = false;
}

// Takes the event if it is signalled, else lines the waiter up. False when the
// waiter needs no more events.
bool event::enlist(link& node) noexcept {
    scoped_lock inside(guard_);
    if (!signalled_) {
        push(node);
        return true;
    }
    if (node.owner->claim(node.index) && mode_ == reset_mode::automatic)
        signalled_ = false;
    return false;
}

void event::leave(link& node) noexcept {
    scoped_lock inside(guard_);
    if (node.linked)
        unlink(node);
}

bool event::wait_linked(std::span<event* const> events, std::span<link> links, waiter& self,
                        milliseconds timeout) noexcept {
    std::size_t enlisted = 0;
    while (enlisted < events.size() && !self.claimed()) {
        link& node = links[enlisted];
        node.owner = &self;
        node.index = static_cast<std::uint32_t>(enlisted);
        if (!events[enlisted++]->enlist(node))
            break;
    }
    if (timeout > milliseconds::zero())
        self.sleep(deadline_after(timeout));
    else
        self.claim(waiter::gave_up);
    for (std::size_t i = 0; i < enlisted; ++i)
        events[i]->leave(links[i]);
    return self.outcome() != waiter::gave_up;
}

bool event::wait(milliseconds timeout) noexcept {
    event* const self = this;
    link node;
    waiter me;
    return wait_linked({&self, 1}, {&node, 1}, me, timeout);
}

std::optional<std::size_t> wait_any(std::span<event* const> events, milliseconds timeout) {
    constexpr std::size_t usual = 8;
    std::array<event::link, usual> few;
    std::vector<event::link> many(events.size() > usual ? events.size() : 0);
    event::waiter me;
    const std::span<event::link> links = many.empty() ? std::span<event::link>(few) : many;
    if (!event::wait_linked(events, links, me, timeout))
        return std::nullopt;
    return me.outcome();
}

} // namespace zel::platform
