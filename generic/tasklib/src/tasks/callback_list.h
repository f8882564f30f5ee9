// The callbacks of one object that can be canceled: in the order in which they were
// added, and each found without a search, because a part may make thousands of tasks
// that follow it.
//
// Not synchronised.
#pragma once

#include <tasklib/cancellation.h>

#include <list>
#include <unordered_map>
#include <utility>

namespace zel::tasklib {

class callback_list {
public:
    /// A callback may be added more than once. When memory is short nothing is added.
    void add(cancellation_callback* callback) {
        const auto place = is_called_ ? row_.end() : row_.insert(row_.end(), callback);
        try {
            const auto [known, is_new] = places_.try_emplace(callback, places{place, {}});
            if (!is_new)
                known->second.later.push_back(place);
        } catch (...) {
            if (!is_called_)
                row_.erase(place);
            throw;
        }
    }

    /// Takes out the earliest of equal ones; does nothing where there is none.
    void remove(cancellation_callback* callback) noexcept {
        const auto known = places_.find(callback);
        if (known == places_.end())
            return;
        auto& [first, later] = known->second;
        if (!is_called_)
            row_.erase(first);
        if (later.empty()) {
            places_.erase(known);
        } else {
            first = later.front();
            later.pop_front();
        }
    }

    /// Runs the function on each callback in the row, unless none that is equal is left when
    /// its turn comes. The function may add and remove callbacks. Only once; takes no memory.
    template <class Function>
    void call_all(const Function& function) {
        is_called_ = true;
        for (auto* const callback : row_)
            if (places_.contains(callback))
                function(*callback);
    }

private:
    using row = std::list<cancellation_callback*>;
    // Where equal ones stand.
    struct places {
        row::iterator first;
        std::list<row::iterator> later;
    };

    row row_;
    std::unordered_map<cancellation_callback*, places> places_;
    // From then on the row stays as it was, and only the places say who is still there.
    bool is_called_ = false;
};

} // namespace zel::tasklib
