// The lists of handlers that a service remembers, one for each text of paths, and how long
// they live.
//
// A broadcast uses a remembered list without owning a reference: it borrows the list under
// a guard that it enters anyway, which spares it two atomic operations on a word that all
// threads would write. As a rule the table owns a list. One that is replaced in the table
// while it is borrowed owns itself until the last borrower gives it back.
//
// Whoever owns these objects guards them, with one guard for all.
#pragma once

#include "framework/event_routing/src/event_routing/events/match_list.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace zel::event_routing::impl {

/// A list, which never changes, with notes beside it, which do: they are guarded.
struct remembered_list final : match_list {
    using match_list::match_list;

    /// Who needs the list, and so how long it lives.
    class loan {
    public:
        /// Found by those who broadcast the text.
        bool is_in_table() const noexcept { return is_in_table_; }
        void enter_table() noexcept { is_in_table_ = true; }
        void leave_table(const std::shared_ptr<const remembered_list>& self) noexcept {
            is_in_table_ = false;
            if (borrowers_ > 0)
                self_ = self;
        }

        void borrow() noexcept { ++borrowers_; }

        /// The last borrower may get the list, to drop it where no lock is held.
        [[nodiscard]] std::shared_ptr<const remembered_list> give_back() noexcept {
            return --borrowers_ == 0 ? std::exchange(self_, nullptr) : nullptr;
        }

    private:
        std::uint32_t borrowers_ = 0;
        bool is_in_table_ = false;
        std::shared_ptr<const remembered_list> self_; // while only borrowers need it
    };

    /// Where a period of the statistics counts the text; of period_counts.
    struct count_place {
        std::uint64_t period = 0;
        std::size_t place = 0;
    };

    mutable loan lent;
    mutable count_place counted;
};

class remembered_lists {
public:
    using pointer = std::shared_ptr<const remembered_list>;

    /// That of the text, of any generation, or null.
    const remembered_list* find(const text_key& paths) const noexcept {
        return table_.find(paths).get();
    }

    /// That of the text if it is of this generation. The caller gives it back.
    const remembered_list* borrow(const text_key& paths, std::uint64_t generation) noexcept {
        const remembered_list* const known = find(paths);
        if (!known || known->generation != generation)
            return nullptr;
        known->lent.borrow();
        return known;
    }

    /// Remembers a list, perhaps (match_table), while the table is not full. What it
    /// replaces is to be dropped where no lock is held.
    [[nodiscard]] pointer remember(const pointer& list);

    /// A full table changes only by taking the place of a smaller one, which the caller
    /// makes meanwhile without the guard: others go on looking into the full one.
    bool is_full() const noexcept { return table_.is_full(); }
    match_table<remembered_list> enlarged_table() const { return table_.enlarged(); }
    void swap_table(match_table<remembered_list>& other) noexcept { std::swap(table_, other); }

private:
    match_table<remembered_list> table_;
};

} // namespace zel::event_routing::impl
