#include "framework/event_routing/src/event_routing/events/match_list.h"

namespace zel::event_routing::impl {

void flattening::FlattenHandlers(std::string_view path,
                                 event_routing_node::collected_handlers& collected) {
    const std::string* text = path == list_->text ? &list_->text : nullptr;
    if (list_->handlers.empty()) // later ones grow the list by its factor
        list_->handlers.reserve(collected.size());
    for (auto& [handler, level] : collected) {
        // Only a look, to save its turn: whether it may run is decided then.
        if (handler->is_retired())
            continue;
        if (several_paths_ && add_path_to_known(path, handler.get()))
            continue;
        if (!text)
            text = &list_->paths.emplace_front(path);
        list_->handlers.push_back({std::move(handler), text, level});
    }
}

bool flattening::add_path_to_known(std::string_view path, const registered_handler* handler) {
    const auto [entry, is_new] =
        known_.try_emplace(handler, known_handler{list_->handlers.size(), nullptr});
    if (is_new)
        return false;
    auto& [place, joined_paths] = entry->second;
    if (!joined_paths) {
        joined_paths = &list_->paths.emplace_front(*list_->handlers[place].path);
        list_->handlers[place].path = joined_paths;
    }
    joined_paths->append(";").append(path);
    return true;
}

} // namespace zel::event_routing::impl
