#include <event_routing/typed/declined_data.h>

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/serialization/serialization_modules.h"
#include "framework/serialization/standard_data.h"

#include <platform/clocks.h>

namespace zel::event_routing::detail {

namespace {

constinit log::source_position
    data_declined("event_routing/framework/event_routing/src/event_routing/typed/declined_data.cpp",
                  43);

constexpr std::int64_t pause = 10'000'000; // a second on the unbiased clock

// Of a document that carries a type's name that name.
std::string type_name_of(const serialization::IDataHolder* holder) {
    const auto data = holder ? holder->GetData() : nullptr;
    if (!data)
        return "no data";
    std::string name = data->GetTypeName();
    if (const auto* const json = dynamic_cast<const serialization::json_data_t*>(data.get())) {
        std::string wrapped_name;
        Json::Value inner;
        if (serialization::get_json_conversion_module()->UnwrapDocument(json->Value(), wrapped_name,
                                                                        inner, 0))
            name = wrapped_name;
    }
    return "'" + name + "'";
}

} // namespace

void declined_data_log::tell(
    const std::string& path, std::string_view wanted_type,
    const std::shared_ptr<const serialization::IDataHolder>& data) noexcept {
    const std::int64_t now = *platform::read_clock_coarsely(platform::clock::unbiased_time);
    std::int64_t silent_until = silent_until_.load(std::memory_order_relaxed);
    if (now < silent_until || !silent_until_.compare_exchange_strong(silent_until, now + pause,
                                                                     std::memory_order_relaxed))
        return;
    impl::routing_log.report(log::severity::declined, data_declined, nullptr, [&] {
        return "A handler of '" + std::string(wanted_type) + "' declines " +
               type_name_of(data.get()) + " along " + path + ".";
    });
}

} // namespace zel::event_routing::detail
