#include <event_routing/client.h>
#include <framework/serialization/payload.h>
#include <iostream>

struct file {
    std::string path;
    std::int64_t size = 0;
};

template <>
struct zel::serialization::record<file> {
    static constexpr std::string_view name = "struct file";
    static constexpr std::tuple fields{field("path", &file::path), field("size", &file::size)};
};

int main() {
    using namespace zel;
    const auto events = event_routing::get_event_routing(*event_routing::get_module());
    const auto list = events->RegisterEventHandler(
        nullptr, "saved",
        [](auto& /*path*/, auto& data, auto& /*parameters*/) {
            file scratch;
            if (const file* saved = serialization::GetDataValue(data, scratch))
                std::cout << saved->path << " has " << saved->size << " bytes\n";
            return true;
        },
        nullptr, "list of files");
    events->BroadcastEvent("saved", serialization::make_payload(file{"a.txt", 3}), {}, nullptr);
}
