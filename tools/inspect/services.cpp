#include "tools/inspect/services.h"

#include "tools/inspect/printable.h"

#include <event_routing/typed.h>

#include <fmt/format.h>

#include <utility>

namespace inspect {

using namespace zel::event_routing;

std::vector<service> enumerate_services(IRequestRouting& requests) {
    using all_handlers = std::vector<enumerate_handlers::handler_list_2>;
    const std::string path = "event_routing.enumerate_handlers2";
    auto answer = Request<all_handlers>::Ask(requests, path, routing_parameters{{own_request, {}}});
    if (!answer)
        throw zel::exceptions::error("The request '" + path + "' was answered with an error.");

    std::vector<service> services;
    bool is_default = true; // the first of the event services; another may have an empty name
    for (auto& list : *answer.value) {
        service& made = services.emplace_back();
        made.type = list.type;
        made.handlers = std::move(list.handlers);
        if (list.type == handler_type::event && !std::exchange(is_default, false))
            made.channel = std::move(list.channelId);
    }
    return services;
}

std::string name_of(handler_type type) {
    for (const auto& [value, name] : zel::serialization::enumeration<handler_type>::values)
        if (value == type)
            return std::string(name);
    return fmt::format("type {}", static_cast<std::int32_t>(type));
}

std::string title_of(const service& shown) {
    std::string title = name_of(shown.type);
    if (shown.channel)
        title += ", channel '" + printable(*shown.channel) + "'";
    return title;
}

const service& channel_named(const std::vector<service>& services, const std::string& name) {
    std::string known;
    for (const auto& candidate : services) {
        if (!candidate.channel)
            continue;
        if (*candidate.channel == name)
            return candidate;
        known += (known.empty() ? "'" : ", '") + printable(*candidate.channel) + "'";
    }
    throw zel::exceptions::error("There is no channel '" + printable(name) + "'; " +
                                 (known.empty() ? "nobody has made one" : "there are " + known) +
                                 ".");
}

} // namespace inspect
