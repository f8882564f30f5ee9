// What a service remembers of the texts that it was given to route: what each of them
// matched.
//
// Matches hold for one generation of the registrations, and every change of these begins
// another one. Matches are immutable and shared, so whoever got them keeps them as long as
// it likes. Their number is bounded; texts beyond the bound, and those that match very
// many handlers, are matched anew each time.
//
//     struct matches_of_request : matches_of_text {
//         using matches_of_text::matches_of_text;
//         std::size_t size() const noexcept; ///< how many handlers
//         ...
//     };
//     match_records<matches_of_request> records;
//
//     const text_key text(path);
//     const auto generation = ...; // before the look-up, so that a change is never missed
//     auto matches = records.recall(text, generation);
//     if (!matches)
//         records.remember(matches = collect(text, generation));
//
// `match_table` is the same without a lock, for a service that has to look at more
// than the matches whenever it looks for them.
#pragma once

#include <platform/critical_section.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel::event_routing::impl {

struct matches_of_text;

/// A text to look for; it must outlive the key.
struct text_key {
    explicit text_key(std::string_view routed) noexcept
        : text(routed), hash(std::hash<std::string_view>()(routed)) {}
    explicit text_key(const matches_of_text& found) noexcept;

    const std::string_view text;
    const std::size_t hash;
};

/// The base of what can be remembered.
struct matches_of_text {
    matches_of_text(const text_key& key, std::uint64_t number_of_changes)
        : text(key.text), hash(key.hash), generation(number_of_changes) {}

    const std::string text;
    const std::size_t hash;
    const std::uint64_t generation;
};

inline text_key::text_key(const matches_of_text& found) noexcept
    : text(found.text), hash(found.hash) {}

/// The owner guards it.
template <class Matches>
class match_table {
public:
    using pointer = std::shared_ptr<const Matches>;

    /// What the text matched in this or in an earlier generation, or null.
    const pointer& find(const text_key& key) const noexcept {
        return slots_[place_of(key.hash, key.text)].matches;
    }

    struct outcome {
        bool is_remembered;
        pointer replaced; ///< to be destroyed where no lock is held; often null
    };

    /// Whether such matches are remembered at all.
    static bool fits(const Matches& matches) noexcept {
        return matches.size() <= most_handlers && matches.text.size() <= longest_text;
    }

    /// Takes the place of what is known of the text unless that is newer. A text that
    /// is not known gets a place while there is room; afterwards not every one does.
    outcome remember(const pointer& matches);

private:
    struct slot {
        std::size_t hash = 0;
        pointer matches;
    };

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

    std::size_t mask() const noexcept { return slots_.size() - 1; }
    std::size_t place_of(std::size_t hash, std::string_view text) const noexcept;
    void grow();
    pointer evict();

    // A power of two of slots with open addressing, at most half of them in use: a
    // look-up reads one, and then what it has found.
    std::vector<slot> slots_ = std::vector<slot>(64);
    std::size_t count_ = 0;
    std::size_t hand_ = 0; // goes round like a clock's; the text that it points to goes next
    std::uint32_t refusals_ = 0;
};

// Where the text stands or, if it is not there, belongs.
template <class Matches>
std::size_t match_table<Matches>::place_of(std::size_t hash, std::string_view text) const noexcept {
    std::size_t place = hash & mask();
    while (slots_[place].matches &&
           (slots_[place].hash != hash || slots_[place].matches->text != text))
        place = (place + 1) & mask();
    return place;
}

template <class Matches>
auto match_table<Matches>::remember(const pointer& matches) -> outcome {
    if (!fits(*matches))
        return {false, nullptr};
    std::size_t place = place_of(matches->hash, matches->text);
    if (slots_[place].matches) {
        if (slots_[place].matches->generation > matches->generation)
            return {false, nullptr};
        return {true, std::exchange(slots_[place].matches, matches)};
    }
    pointer replaced;
    if (count_ == most_texts) {
        if (++refusals_ % refusals_for_admission != 0)
            return {false, nullptr};
        replaced = evict();
    } else if (2 * (count_ + 1) > slots_.size()) {
        grow();
    }
    place = place_of(matches->hash, matches->text);
    slots_[place] = {matches->hash, matches};
    ++count_;
    return {true, std::move(replaced)};
}

template <class Matches>
void match_table<Matches>::grow() {
    std::vector<slot> larger(2 * slots_.size());
    larger.swap(slots_);
    for (slot& s : larger)
        if (s.matches)
            slots_[place_of(s.hash, s.matches->text)] = std::move(s);
}

// Takes one out and closes the gap in its row.
template <class Matches>
auto match_table<Matches>::evict() -> pointer {
    while (!slots_[hand_].matches)
        hand_ = (hand_ + 1) & mask();
    std::size_t gap = hand_;
    hand_ = (hand_ + 1) & mask();
    pointer gone = std::move(slots_[gap].matches);
    for (std::size_t next = (gap + 1) & mask(); slots_[next].matches; next = (next + 1) & mask()) {
        const std::size_t home = slots_[next].hash & mask();
        if (((next - home) & mask()) < ((next - gap) & mask()))
            continue; // would stand before its home
        slots_[gap] = std::move(slots_[next]);
        gap = next;
    }
    --count_;
    return gone;
}

/// Any thread may call any operation.
template <class Matches>
class match_records {
public:
    using pointer = std::shared_ptr<const Matches>;

    /// What the text matched in this generation, or null.
    pointer recall(const text_key& text, std::uint64_t generation) const {
        platform::scoped_lock inside(guard_);
        const pointer& known = table_.find(text);
        return known && known->generation == generation ? known : nullptr;
    }

    /// Remembers matches for later messages; see match_table. Throws when memory is short,
    /// and changes nothing then.
    void remember(const pointer& matches) {
        pointer replaced; // goes when the guard is free
        platform::scoped_lock inside(guard_);
        replaced = table_.remember(matches).replaced;
    }

private:
    mutable platform::plain_lock guard_; // for a look-up or an addition
    match_table<Matches> table_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
