#include "framework/event_routing/src/event_routing/routing/thread_records.h"

#include <platform/announced_wait.h>
#include <platform/process_barrier.h>

#include <algorithm>

namespace zel::event_routing::impl {

namespace {

constinit platform::plain_lock shared_guard; // of the next; held while records are made
constinit thread_records* shared_records ZEL_GUARDED_BY(shared_guard) = nullptr;

constexpr auto awaited = static_cast<std::uintptr_t>(removal_waits::yes);

bool is_of(std::uintptr_t word, const retirable_base& callable) noexcept {
    return (word & ~awaited) == reinterpret_cast<std::uintptr_t>(&callable);
}

// To go through more handlers would take longer than the heavy barrier.
constexpr std::size_t most_compared = 4096;

bool may_name(const message_frame& frame, const retirable_base& callable,
              std::size_t& compared) noexcept {
    if (callable.role() == callable_role::monitor) // in which snapshot, nobody knows
        return frame.snapshot.word() != 0;
    const auto word = frame.list.word();
    if (word == 0)
        return false;
    if (word & named_use::opaque)
        return true;
    if (word & named_use::one)
        return word == (reinterpret_cast<std::uintptr_t>(&callable) | named_use::one);
    const auto& list = *reinterpret_cast<const handler_list_base*>(word);
    compared += list.size();
    return compared > most_compared || list.contains(callable);
}

} // namespace

thread_record::~thread_record() {
    for (block* b = first_.next.load(std::memory_order_relaxed); b;)
        delete std::exchange(b, b->next.load(std::memory_order_relaxed));
}

message_frame& thread_record::deep_frame() {
    block* at = &first_;
    for (std::size_t blocks = depth_ / first_.frames.size(); blocks > 0; --blocks) {
        block* next = at->next.load(std::memory_order_relaxed);
        if (!next)
            at->next.store(next = new block, std::memory_order_seq_cst);
        at = next;
    }
    return at->frames[depth_ % first_.frames.size()];
}

std::shared_ptr<thread_records> thread_records::shared() {
    platform::scoped_lock inside(shared_guard);
    // Null also while the last ones are being destroyed, on another thread.
    auto all = shared_records ? shared_records->weak_from_this().lock() : nullptr;
    if (!all) {
        all = std::make_shared<thread_records>();
        shared_records = all.get();
    }
    return all;
}

thread_records::thread_records() {
    platform::prepare_heavy_barrier();
}

thread_records::~thread_records() {
    platform::scoped_lock inside(shared_guard);
    if (shared_records == this)
        shared_records = nullptr;
}

thread_record& thread_records::add_record() {
    auto made = std::make_unique<thread_record>();
    thread_record& record = *made;
    {
        platform::scoped_lock inside(guard_);
        records_.push_back(std::move(made));
    }
    try {
        own_record_.set(&record);
    } catch (...) {
        thread_ends(this, &record);
        throw;
    }
    return record;
}

void thread_records::thread_ends(void* records, void* record) noexcept {
    auto& self = *static_cast<thread_records*>(records);
    platform::scoped_lock inside(self.guard_);
    std::erase_if(self.records_, [&](const auto& r) { return r.get() == record; });
}

// Up to the first that passes.
template <class Test>
bool thread_records::any_frame(const Test& test) const {
    for (const auto& record : records_)
        for (auto* b = &record->first_; b; b = b->next.load(std::memory_order_seq_cst))
            for (message_frame& frame : b->frames)
                if (test(*record, frame))
                    return true;
    return false;
}

void thread_records::close(retirable_base& removed) noexcept {
    removed.is_retired_.exchange(true, std::memory_order_seq_cst);
    if (may_be_named_elsewhere(removed)) // and just be announced there
        platform::heavy_barrier();
    count_uses(removed);
}

bool thread_records::may_be_named_elsewhere(const retirable_base& removed) const noexcept {
    const void* const own = own_record_.get();
    std::size_t compared = 0;
    platform::scoped_lock inside(guard_);
    return any_frame([&](const thread_record& record, const message_frame& frame) {
        return &record != own && may_name(frame, removed, compared);
    });
}

void thread_records::count_uses(retirable_base& removed) noexcept {
    platform::scoped_lock inside(guard_);
    removed.uses_ = 1;
    any_frame([&](const thread_record&, message_frame& frame) {
        call_place& place = frame.place_of(removed.role());
        const auto word = place.target.load(std::memory_order_acquire);
        if (is_of(word, removed)) {
            place.is_counted = true;
            ++removed.uses_;
            removed.awaited_ += (word & awaited) != 0;
        }
        return false;
    });
}

bool thread_records::is_inside(const retirable_base& callable) const noexcept {
    return announces(callable, 0);
}

bool thread_records::is_inside_awaited(const retirable_base& callable) const noexcept {
    return announces(callable, awaited);
}

// Only what this thread has written itself counts.
bool thread_records::announces(const retirable_base& callable, std::uintptr_t kind) const noexcept {
    const void* const own = own_record_.get();
    platform::scoped_lock inside(guard_);
    return any_frame([&](const thread_record& record, message_frame& frame) {
        const auto word = frame.place_of(callable.role()).target.load(std::memory_order_relaxed);
        return &record == own && is_of(word, callable) && (word & kind) == kind;
    });
}

auto thread_records::calls_inside(const retirable_base& removed) const noexcept -> counted_calls {
    platform::scoped_lock inside(guard_);
    return {removed.awaited_, removed.uses_ - removed.awaited_ - 1};
}

void thread_records::wait_for_awaited_calls(retirable_base& removed) noexcept {
    wait(removed, {}, [](const counted_calls& left) { return left.awaited == 0; });
}

void thread_records::wait_for_all_calls(retirable_base& removed,
                                        platform::wait_deadline until) noexcept {
    wait(removed, until, [](const counted_calls& left) { return left.awaited + left.others == 0; });
}

template <class IsOver>
void thread_records::wait(retirable_base& removed, platform::wait_deadline until,
                          const IsOver& is_over) noexcept {
    for (bool in_time = true; in_time;) {
        const auto seen = removed.leavings_.load(std::memory_order_acquire);
        {
            platform::scoped_lock inside(guard_);
            removed.somebody_waits_ = true;
        }
        if (is_over(calls_inside(removed)))
            return;
        const platform::announced_wait others_take_over;
        in_time = platform::wait_on_address(removed.leavings_, seen, until);
    }
}

bool thread_records::end_removal(retirable_base& removed) noexcept {
    platform::scoped_lock inside(guard_);
    return --removed.uses_ == 0;
}

bool thread_records::end_call(call_place& place, retirable_base& used,
                              removal_waits waited) noexcept {
    platform::scoped_lock inside(guard_);
    if (!std::exchange(place.is_counted, false))
        return false;
    used.awaited_ -= waited == removal_waits::yes;
    const bool was_last = --used.uses_ == 0;
    if (used.somebody_waits_) {
        used.leavings_.fetch_add(1, std::memory_order_release);
        platform::wake_one(used.leavings_);
    }
    return was_last;
}

bool thread_records::is_named(const void* used) const noexcept {
    platform::scoped_lock inside(guard_);
    return any_frame([&](const thread_record&, const message_frame& frame) {
        return frame.list.is(used) || frame.snapshot.is(used);
    });
}

void thread_records::forget_uses_of(const void* keeper) noexcept {
    platform::scoped_lock inside(guard_);
    any_frame([&](const thread_record&, message_frame& frame) {
        frame.list.forget(keeper);
        frame.snapshot.forget(keeper);
        return false;
    });
}

void thread_records::add_part(thread_record& own, const void* service,
                              std::unique_ptr<thread_part> part) {
    platform::scoped_lock inside(guard_);
    own.parts_.add(service, std::move(part));
}

void thread_records::drop_parts(const void* service) noexcept {
    platform::scoped_lock inside(guard_);
    for (const auto& record : records_)
        record->parts_.drop(service);
}

} // namespace zel::event_routing::impl
