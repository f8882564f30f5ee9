// What a service remembers of the texts that it was given to route: what each of them
// matched.
//
// Matches hold for one generation of the registrations, and every change of these begins
// another one. Matches are immutable and shared. Their number is bounded; texts beyond the
// bound, and those that match very many handlers, are matched anew each time.
//
//     struct matches_of_request : matches_of_text {
//         using matches_of_text::matches_of_text;
//         std::size_t size() const noexcept override;
//         bool contains(const retirable_base& handler) const noexcept override;
//     };
//     match_records<matches_of_request> records(threads);
//
//     const auto generation = ...; // before the look-up, so that a change is never missed
//     auto* matches = records.recall(message, path, generation);
//     if (!matches)
//         records.remember(made = collect(path, generation)); // which the message keeps
//
// current_matches.h does that for a message.
//
// A look-up that finds what it looks for takes no lock and no reference: the message names
// the matches in its frame and then looks whether they still stand in the table. Matches
// that were taken out of the table are kept until no frame names them.
//
//     a message                           whoever replaces matches, under the guard
//     1 names the matches                 1 takes them out of the table
//     2 are they in the table?            2 does a frame name them? then keeps them
//
// Both steps on either side are sequentially consistent, so at least one sees the other. What
// the frame still names from the message before needs neither step: it has stayed since then,
// and its generation tells whether it holds.
#pragma once

#include "framework/event_routing/src/event_routing/routing/text_hash.h"
#include "framework/event_routing/src/event_routing/routing/thread_records.h"

#include <platform/critical_section.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel::event_routing::impl {

/// The base of what can be remembered.
struct matches_of_text : handler_list_base {
    matches_of_text(std::string_view routed, std::uint64_t number_of_changes)
        : text(routed), hash(text_hash(routed)), generation(number_of_changes) {}

    const std::string text;
    const std::size_t hash;
    const std::uint64_t generation;

protected:
    ~matches_of_text() = default;
};

/// Any thread may call any operation.
template <class Matches>
class match_records {
public:
    using pointer = std::shared_ptr<const Matches>;

    explicit match_records(thread_records& threads) : threads_(threads) {
        tables_.push_back(std::make_unique<table>(smallest_table));
        current_.store(tables_.back().get(), std::memory_order_relaxed);
    }
    /// No message of the service is under way.
    ~match_records() { threads_.forget_uses_of(this); }
    match_records(const match_records&) = delete;
    match_records& operator=(const match_records&) = delete;

    /// What the text matched in this generation, or null. Good until the message ends or
    /// recalls or keeps other matches.
    const Matches* recall(message_scope& message, std::string_view text,
                          std::uint64_t generation) const {
        const auto* const last = as_matches(message.frame().list.last_of(this));
        return last && last->generation == generation && last->text == text
                   ? last
                   : find(message, text, generation);
    }

    /// Remembers matches for others, if there is room; see below. Throws when memory is
    /// short, and changes nothing.
    void remember(const pointer& matches);

private:
    struct slot {
        // Relaxed: a hint; what the matches say counts.
        std::atomic<std::size_t> hash{0};
        // Sequentially consistent where the table above says so; else acquire and release:
        // whoever finds matches sees them made.
        std::atomic<const Matches*> matches{nullptr};
        pointer owner; // of the same; for those under the guard
    };
    // A power of two of slots with open addressing, at most half of them in use.
    struct table {
        explicit table(std::size_t size) : slots(size) {}
        std::size_t next(std::size_t place) const noexcept { return (place + 1) & mask(); }
        std::size_t mask() const noexcept { return slots.size() - 1; }

        std::vector<slot> slots;
    };

    static constexpr std::size_t smallest_table = 64;

    // When many more texts than these are routed in turn, what is remembered of one has left
    // the processor's caches before the text comes again: matching anew is cheaper then.
    static constexpr std::size_t most_texts = 16'384;

    // Matches beyond these are not remembered, which bounds the memory of all together.
    static constexpr std::size_t most_handlers = 256;
    static constexpr std::size_t longest_text = 4096;

    // When there is no room, one text in so many takes the place of another: what is
    // routed often gets in soon, while a walk over very many texts leaves most where
    // they are.
    static constexpr std::uint32_t refusals_for_admission = 16;

    // As many may wait until no frame names them before somebody looks for that, and then
    // twice as many as are left. Threads that send nothing go on naming what they used last.
    static constexpr std::size_t least_replaced = 32;

    const Matches* find(message_scope& message, std::string_view text,
                        std::uint64_t generation) const;
    // Lists are named by the address of that base, into which removals look.
    static const handler_list_base* as_list(const Matches* matches) noexcept { return matches; }
    static const Matches* as_matches(const void* list) noexcept {
        return static_cast<const Matches*>(static_cast<const handler_list_base*>(list));
    }
    table& current() const noexcept { return *current_.load(std::memory_order_acquire); }
    static std::size_t place_of(const table& in, const Matches& wanted) noexcept;
    static void put(slot& to, pointer matches) noexcept;
    void grow() ZEL_REQUIRES(guard_);
    void evict() ZEL_REQUIRES(guard_);
    void take_out(slot& from) ZEL_REQUIRES(guard_);
    std::vector<pointer> take_unused() ZEL_REQUIRES(guard_);

    thread_records& threads_;

    // Guards what is written, for an addition. Nested in it is the guard of the records.
    platform::plain_lock guard_;
    // The last is the current one. Readers may still walk through one of the others, which
    // are empty.
    std::vector<std::unique_ptr<table>> tables_ ZEL_GUARDED_BY(guard_);
    std::atomic<table*> current_{nullptr}; // release and acquire: whoever finds it sees it made
    std::size_t count_ ZEL_GUARDED_BY(guard_) = 0;
    std::size_t hand_ ZEL_GUARDED_BY(guard_) = 0; // of the clock: who stands there goes next
    std::uint32_t refusals_ ZEL_GUARDED_BY(guard_) = 0;
    std::vector<pointer> replaced_ ZEL_GUARDED_BY(guard_); // out of the table, perhaps named
    std::size_t next_look_at_ ZEL_GUARDED_BY(guard_) = least_replaced;
};

template <class Matches>
const Matches* match_records<Matches>::find(message_scope& message, std::string_view text,
                                            std::uint64_t generation) const {
    const table& in = current();
    const std::size_t hash = text_hash(text);
    for (std::size_t place = hash & in.mask();; place = in.next(place)) {
        const slot& at = in.slots[place];
        const Matches* const found = at.matches.load(std::memory_order_acquire);
        if (!found)
            return nullptr;
        if (at.hash.load(std::memory_order_relaxed) != hash)
            continue;
        const auto is_still_there = [&] {
            return at.matches.load(std::memory_order_seq_cst) == found;
        };
        if (!message.frame().list.name_if(as_list(found), this, is_still_there))
            return nullptr; // being replaced: as good as not known
        if (found->hash == hash && found->text == text)
            return found->generation == generation ? found : nullptr;
    }
}

template <class Matches>
void match_records<Matches>::remember(const pointer& matches) {
    if (matches->size() > most_handlers || matches->text.size() > longest_text)
        return;
    std::vector<pointer> unused; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    if (replaced_.size() >= next_look_at_) {
        unused = take_unused();
        next_look_at_ = std::max(least_replaced, 2 * replaced_.size());
    }
    replaced_.reserve(next_look_at_);
    slot& known = current().slots[place_of(current(), *matches)];
    if (known.owner) {
        if (known.owner->generation > matches->generation)
            return; // of one who began before a change and was slow
        take_out(known);
        put(known, matches);
        return;
    }
    if (count_ == most_texts) {
        if (++refusals_ % refusals_for_admission != 0)
            return;
        evict();
    } else if (2 * (count_ + 1) > current().slots.size()) {
        grow();
    }
    put(current().slots[place_of(current(), *matches)], matches);
    ++count_;
}

// Where the text stands or, if it is not there, belongs.
template <class Matches>
std::size_t match_records<Matches>::place_of(const table& in, const Matches& wanted) noexcept {
    std::size_t place = wanted.hash & in.mask();
    for (;; place = in.next(place)) {
        const slot& at = in.slots[place];
        if (!at.owner || (at.hash.load(std::memory_order_relaxed) == wanted.hash &&
                          at.owner->text == wanted.text))
            return place;
    }
}

template <class Matches>
void match_records<Matches>::put(slot& to, pointer matches) noexcept {
    to.hash.store(matches->hash, std::memory_order_relaxed);
    to.matches.store(matches.get(), std::memory_order_seq_cst);
    to.owner = std::move(matches);
}

// There is room for it.
template <class Matches>
void match_records<Matches>::take_out(slot& from) {
    from.matches.store(nullptr, std::memory_order_seq_cst);
    replaced_.push_back(std::move(from.owner));
}

template <class Matches>
void match_records<Matches>::grow() {
    const table& old = current();
    tables_.push_back(std::make_unique<table>(2 * old.slots.size()));
    table& larger = *tables_.back();
    for (slot& s : tables_[tables_.size() - 2]->slots)
        if (s.owner) {
            // Who finds matches in the old table must not take them for remembered later.
            s.matches.store(nullptr, std::memory_order_seq_cst);
            auto& moved = larger.slots[place_of(larger, *s.owner)];
            put(moved, std::move(s.owner));
        }
    current_.store(&larger, std::memory_order_release);
}

// Takes one out and closes the gap in its row.
template <class Matches>
void match_records<Matches>::evict() {
    auto& slots = current().slots;
    const auto mask = current().mask();
    while (!slots[hand_].owner)
        hand_ = (hand_ + 1) & mask;
    std::size_t gap = hand_;
    hand_ = (hand_ + 1) & mask;
    take_out(slots[gap]);
    for (std::size_t next = (gap + 1) & mask; slots[next].owner; next = (next + 1) & mask) {
        const std::size_t home = slots[next].hash.load(std::memory_order_relaxed) & mask;
        if (((next - home) & mask) < ((next - gap) & mask))
            continue; // would stand before its home
        slots[next].matches.store(nullptr, std::memory_order_seq_cst);
        put(slots[gap], std::move(slots[next].owner));
        gap = next;
    }
    --count_;
}

template <class Matches>
auto match_records<Matches>::take_unused() -> std::vector<pointer> {
    std::vector<pointer> unused;
    unused.reserve(replaced_.size());
    std::erase_if(replaced_, [&](pointer& matches) {
        if (threads_.is_named(as_list(matches.get())))
            return false;
        unused.push_back(std::move(matches));
        return true;
    });
    return unused;
}

} // namespace zel::event_routing::impl
