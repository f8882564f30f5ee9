#include <event_routing/client.h>
#include <framework/serialization/payload.h>

#include <iostream>
#include <memory>
#include <string>

struct greeting {
    std::string text;
};

template <>
struct zel::serialization::record<greeting> {
    static constexpr std::string_view name = "struct greeting";
    static constexpr std::tuple fields{field("text", &greeting::text)};
};

int main() {
    const auto module = zel::event_routing::get_module();
    const auto events = zel::event_routing::get_event_routing(*module);

    const auto cookie = events->RegisterEventHandler(
        nullptr, "a.*",
        [](const std::string& path, const zel::event_routing::event_data& data,
           const zel::event_routing::routing_parameters&) {
            greeting scratch;
            std::cout << zel::serialization::GetDataValue(data, scratch)->text << ' ' << path
                      << '\n';
            return true;
        },
        nullptr, "prints text and path");

    const auto data = zel::serialization::make_payload(greeting{"handled"});
    events->BroadcastEvent("a.b", data, {}, nullptr);
    events->BroadcastEvent("c.d", data, {}, nullptr);
}
