// What waits its turn, up to a number of items and of bytes. The owner's lock guards it.
#pragma once

#include <event_routing/nats_bridge.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

namespace zel::event_routing::nats {

template <class Item>
class bounded_row {
public:
    explicit bounded_row(const bridge_options& options)
        : most_(options.most_waiting), most_bytes_(options.most_waiting_bytes),
          policy_(options.when_full) {}

    /// Returns what found no room, perhaps the item itself.
    [[nodiscard]] std::vector<Item> push(Item item, std::size_t bytes) {
        std::vector<Item> dropped;
        while (!has_room(bytes)) {
            if (policy_ == full_row::drop_newest || items_.empty()) {
                dropped.push_back(std::move(item));
                return dropped;
            }
            dropped.push_back(*pop());
        }
        bytes_ += bytes;
        items_.emplace_back(std::move(item), bytes);
        return dropped;
    }

    std::optional<Item> pop() {
        if (items_.empty())
            return std::nullopt;
        bytes_ -= items_.front().second;
        std::optional<Item> first = std::move(items_.front().first);
        items_.pop_front();
        return first;
    }

    bool empty() const noexcept { return items_.empty(); }

private:
    bool has_room(std::size_t bytes) const noexcept {
        return items_.size() < most_ && bytes <= most_bytes_ && bytes_ <= most_bytes_ - bytes;
    }

    std::size_t most_;
    std::size_t most_bytes_;
    full_row policy_;
    std::size_t bytes_ = 0;
    std::deque<std::pair<Item, std::size_t>> items_; // with the bytes that it counts for
};

} // namespace zel::event_routing::nats
