#include "tools/inspect/reach.h"

#include "framework/serialization/json_values.h"
#include "framework/text/split_string.h"
#include "tools/inspect/printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace inspect {

namespace {

std::size_t count_of_subnodes(std::string_view path) {
    return static_cast<std::size_t>(std::count(path.begin(), path.end(), '.')) + 1;
}

using zel::text::empty_pieces;

std::vector<std::string> routed_paths(handler_type type, const std::string& path) {
    if (type == handler_type::event)
        return zel::text::split_string(path, ";", empty_pieces::drop);
    return {path};
}

} // namespace

std::optional<std::size_t> match_level(std::string_view registered, std::string_view routed) {
    if (registered == "*")
        return 0;
    if (!registered.ends_with(".*"))
        return registered == routed ? std::optional(count_of_subnodes(routed)) : std::nullopt;
    registered.remove_suffix(1); // with its full stop: `a.b` and `a.bc` are not below `a.b`
    if (!routed.starts_with(registered))
        return std::nullopt;
    return count_of_subnodes(registered) - 1;
}

std::vector<reached_handler> reached_handlers(const service& asked, const std::string& path) {
    std::vector<reached_handler> all;
    std::map<std::size_t, std::size_t> known; // place in the list of handlers, place in `all`
    for (const std::string& routed : routed_paths(asked.type, path)) {
        std::vector<std::pair<std::size_t, std::size_t>> matches; // level, place in the list
        for (std::size_t place = 0; place < asked.handlers.size(); ++place)
            if (const auto level = match_level(asked.handlers[place].first, routed))
                matches.emplace_back(*level, place);
        std::stable_sort(matches.begin(), matches.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        for (const auto& [level, place] : matches) {
            const auto [entry, is_new] = known.try_emplace(place, all.size());
            const auto& [registered, description] = asked.handlers[place];
            if (is_new)
                all.push_back({level, registered, description, routed});
            else
                all[entry->second].routed += ";" + routed;
        }
    }
    return all;
}

std::string_view caution(handler_type type) {
    if (type == handler_type::request)
        return "The list of handlers tells no priorities: those of a higher priority are asked "
               "first, and within one priority in this order, until one answers. Redirections, "
               "which come before, and fallbacks, which come after, are not listed.";
    return {};
}

std::string reach_as_text(const service& asked, const std::string& path) {
    const auto reached = reached_handlers(asked, path);
    std::string text = title_of(asked) + '\n';
    if (reached.empty())
        text += "    reaches no handler\n";
    std::size_t number = 0;
    for (const auto& handler : reached) {
        text += fmt::format("{:4}. level {}  {}  [{}]", ++number, handler.level,
                            printable(handler.registered), printable(handler.description));
        text += handler.routed == path ? "\n" : "  as " + printable(handler.routed) + '\n';
    }
    if (const auto note = caution(asked.type); !note.empty())
        text += fmt::format("    {}\n", note);
    return text;
}

Json::Value reach_as_json(const service& asked, const std::string& path) {
    using zel::serialization::json_values::string;
    Json::Value json(Json::objectValue);
    json["type"] = name_of(asked.type);
    if (asked.channel)
        json["channelId"] = string(*asked.channel, {});
    json["path"] = string(path, {});
    Json::Value& handlers = json["handlers"] = Json::Value(Json::arrayValue);
    for (const auto& handler : reached_handlers(asked, path)) {
        Json::Value one(Json::objectValue);
        one["level"] = static_cast<Json::UInt64>(handler.level);
        one["path"] = string(handler.registered, {});
        one["description"] = string(handler.description, {});
        one["routed"] = string(handler.routed, {});
        handlers.append(std::move(one));
    }
    if (const auto note = caution(asked.type); !note.empty())
        json["caution"] = std::string(note);
    return json;
}

} // namespace inspect
