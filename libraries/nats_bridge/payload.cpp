#include "libraries/nats_bridge/payload.h"

#include "framework/exceptions/exceptions.h"
#include "libraries/nats_bridge/origin.h"

#include <event_routing/nats_bridge.h>
#include <framework/serialization/serialization_modules.h>

namespace zel::event_routing::nats {

std::optional<carried_payload>
carry(const std::shared_ptr<const serialization::IDataHolder>& data) {
    const auto content = data ? data->GetData() : nullptr;
    if (!content)
        return std::nullopt;
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
    content->GetSerializedData(&bytes, &size);
    return carried_payload{content->GetTypeName(), {bytes, bytes + size}};
}

std::shared_ptr<serialization::IDataHolder> uncarry(const std::optional<carried_payload>& payload) {
    if (!payload)
        return nullptr;
    auto holder = serialization::get_bin_serialization_module()->CreateData(payload->type);
    const auto content = holder ? holder->GetData() : nullptr;
    if (!content)
        throw exceptions::error("The data type '" + payload->type +
                                "' is not registered in this process.");
    content->SetSerializedData(payload->bytes.data(), payload->bytes.size());
    return holder;
}

void mark_as_imported(routing_parameters& about, const std::string& origin, std::uint8_t hops) {
    for (const char* ours :
         {event_routing::parameter::synchronous, event_routing::parameter::target_session,
          event_routing::parameter::prefer_local_request_handlers,
          event_routing::parameter::skip_request_fallbacks,
          event_routing::parameter::suppress_not_processed_exception})
        about.erase(ours);
    about[parameter::origin] = origin;
    about[parameter::host] = host_of(origin);
    about[parameter::hops] = hops + 1;
}

} // namespace zel::event_routing::nats
