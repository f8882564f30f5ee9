// The handlers that a broadcast reaches, in the order in which they run.
//
// Shared and never changed once it is made. Handlers are held as records, so a list
// keeps no dropped handler's callable alive. The paths that handlers are given
// belong to the list: whoever runs a handler holds the list.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_node.h"
#include "framework/event_routing/src/event_routing/routing/match_records.h"

#include <algorithm>
#include <forward_list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::event_routing::impl {

/// One handler that a broadcast will run.
struct MultiPathHandlerInfo {
    std::shared_ptr<event_routing_node::registered_handler> handler;
    const std::string* path; ///< that found it; several are joined by ";"
    std::int32_t level;      ///< of the first of them
};

struct match_list final : matches_of_text, std::enable_shared_from_this<match_list> {
    using matches_of_text::matches_of_text;

    std::size_t size() const noexcept override { return handlers.size(); }
    bool contains(const retirable_base& handler) const noexcept override {
        return std::ranges::any_of(
            handlers, [&](const auto& entry) { return entry.handler.get() == &handler; });
    }

    std::vector<MultiPathHandlerInfo> handlers;
    std::forward_list<std::string> paths; // those that are not the text, where they stay
};

/// Makes one list.
class flattening {
public:
    /// Of a text of one path or of several.
    flattening(std::string_view paths, std::uint64_t generation)
        : list_(std::make_shared<match_list>(paths, generation)),
          several_paths_(paths.find(';') != std::string_view::npos) {}

    /// Moves the handlers collected for one path of the text to the end of the list; those that are
    /// there already only get the path added.
    void FlattenHandlers(std::string_view path, event_routing_node::collected_handlers& collected);

    std::shared_ptr<const match_list> take() noexcept { return std::move(list_); }

private:
    using registered_handler = event_routing_node::registered_handler;
    struct known_handler {
        std::size_t place;
        std::string* joined_paths; ///< null while one path has found it
    };

    bool add_path_to_known(std::string_view path, const registered_handler* handler);

    std::shared_ptr<match_list> list_;
    // Kept only for broadcasts to several paths: a search through the list for each
    // handler of each path would be quadratic.
    const bool several_paths_;
    std::unordered_map<const registered_handler*, known_handler> known_;
};

} // namespace zel::event_routing::impl
