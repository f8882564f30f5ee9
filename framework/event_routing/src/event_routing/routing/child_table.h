// The children of a routing-map node by name.
//
// Nodes are never removed, so a flat table with open addressing does. Its size is
// a power of two: the division of a general hash map would be the larger part of
// a look-up here, and there is one look-up for every subnode of a routed path.
#pragma once

#include "framework/event_routing/src/event_routing/routing/text_hash.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

template <class Node>
class child_table {
public:
    struct child {
        explicit child(std::string_view subnode) : name(subnode) {}
        const std::string name;
        Node node;
        std::unique_ptr<child> next; // once it has left its table
    };

    /// Null when there is no child of that name.
    Node* find(std::string_view name) const noexcept {
        if (slots_.empty())
            return nullptr;
        const slot& found = slots_[place_of(name, text_hash(name))];
        return found.entry ? &found.entry->node : nullptr;
    }

    Node& find_or_add(std::string_view name) {
        // At most half full: a search ends soon, and always.
        if (2 * (count_ + 1) > slots_.size())
            grow();
        const std::size_t hashed = text_hash(name);
        slot& found = slots_[place_of(name, hashed)];
        if (!found.entry) {
            found = {hashed, std::make_unique<child>(name)};
            ++count_;
        }
        return found.entry->node;
    }

    /// In no particular order.
    std::vector<const child*> all() const {
        std::vector<const child*> children;
        children.reserve(count_);
        for (const slot& s : slots_)
            if (s.entry)
                children.push_back(s.entry.get());
        return children;
    }

    /// Moves all children to the front of a chain. Takes no memory.
    void release_to(std::unique_ptr<child>& chain) noexcept {
        for (slot& s : slots_)
            if (s.entry) {
                s.entry->next = std::move(chain);
                chain = std::move(s.entry);
            }
        slots_.clear();
        count_ = 0;
    }

private:
    struct slot {
        std::size_t hash = 0;
        std::unique_ptr<child> entry;
    };

    // Where the name stands or, if it is not there, belongs.
    std::size_t place_of(std::string_view name, std::size_t hashed) const noexcept {
        const std::size_t mask = slots_.size() - 1;
        std::size_t place = hashed & mask;
        while (slots_[place].entry &&
               (slots_[place].hash != hashed || slots_[place].entry->name != name))
            place = (place + 1) & mask;
        return place;
    }

    void grow() {
        constexpr std::size_t smallest = 4;
        std::vector<slot> larger(slots_.empty() ? smallest : 2 * slots_.size());
        larger.swap(slots_);
        for (slot& s : larger)
            if (s.entry)
                slots_[place_of(s.entry->name, s.hash)] = std::move(s);
    }

    std::vector<slot> slots_;
    std::size_t count_ = 0;
};

} // namespace zel::event_routing::impl
