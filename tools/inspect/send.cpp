#include "tools/inspect/send.h"

#include "framework/serialization/json_text.h"
#include "framework/serialization/payload.h"
#include "tools/inspect/printable.h"
#include "tools/inspect/services.h"

#include <platform/thread_id.h>

#include <utility>

namespace inspect {

namespace {

using namespace zel::event_routing;
using namespace zel::serialization;
using zel::exceptions::error;

using payload = std::shared_ptr<IDataHolder>;

payload payload_of(const Json::Value& document) {
    const auto conversions = get_json_conversion_module();
    std::string type_name;
    Json::Value value;
    if (!conversions->UnwrapDocument(document, type_name, value, 0))
        return make_json_payload(document);
    payload made = conversions->CreateFromJson(type_name, value);
    if (!made && !value.isNull())
        throw usage_error("--payload: no component knows the data type '" + printable(type_name) +
                          "'");
    return made;
}

Json::Value wrapped(const payload& holder) {
    const auto data = holder ? holder->GetData() : nullptr;
    if (!data)
        return {};
    const auto conversions = get_json_conversion_module();
    const std::string type_name = data->GetTypeName();
    const Json::Value value = conversions->ToJson(holder);
    if (value.isNull() && type_name != json_data_t::name)
        throw error("The answer is of the type '" + printable(type_name) +
                    "', of which no component tells how it reads as JSON.");
    return conversions->WrapDocument(type_name, value);
}

std::string document_text(const payload& holder) {
    return json_to_text(wrapped(holder));
}

sent answer_of(const payload& response, const payload& error_response) {
    sent result{document_text(response), {}};
    if (error_response && error_response->GetData())
        result.failure = "answered with an error: " + document_text(error_response);
    return result;
}

sent send_request(const host& components, const command_line& asked, const payload& data) {
    payload response, error_response;
    const bool processed = components.requests().SendRequest(asked.path, data, response,
                                                             error_response, asked.parameters);
    sent result = answer_of(response, error_response);
    if (!processed && result.failure.empty())
        result.failure = "nobody has processed the request"; // the user suppressed the exception
    return result;
}

sent send_snowball(const host& components, const command_line& asked, const payload& data) {
    payload response, error_response;
    components.snowballs().SendSnowball(asked.path, data, response, error_response,
                                        asked.parameters);
    return answer_of(response, error_response);
}

Json::Value handlers_as_json(const monitor::event_handling_info_2& info) {
    Json::Value handlers(Json::arrayValue);
    for (const auto& [level, description] : info.handlers_info) {
        Json::Value handler(Json::objectValue);
        handler["level"] = level;
        handler["description"] = json_values::string(description, {});
        handlers.append(std::move(handler));
    }
    return handlers;
}

sent broadcast(const host& components, const command_line& asked, const payload& data) {
    std::shared_ptr<IEventRouting> instance;
    if (asked.channel) {
        channel_named(enumerate_services(components.requests()), *asked.channel);
        instance = components.channel(*asked.channel);
    }
    IEventRouting& events = instance ? *instance : components.events();

    // Handlers may broadcast, too: this thread's last record is that of the message itself.
    Json::Value reached(Json::arrayValue);
    const auto monitor = events.RegisterMonitorHandler(
        [&, sender = zel::platform::this_thread_id()](const std::string&, const event_data&,
                                                      const routing_parameters&,
                                                      const monitor::event_handling_info_2& info) {
            if (!info.handler_info && zel::platform::this_thread_id() == sender)
                reached = handlers_as_json(info);
        });
    routing_parameters parameters = asked.parameters;
    parameters.try_emplace(parameter::synchronous, -1); // the end of the program would cancel them
    events.BroadcastEvent(asked.path, data, parameters, nullptr);
    Json::Value document(Json::objectValue);
    document["handlers"] = std::move(reached);
    return {json_to_text(document), {}};
}

} // namespace

sent send_message(const host& components, const command_line& asked) {
    const payload data = asked.payload ? payload_of(*asked.payload) : nullptr;
    switch (*asked.type) {
    case handler_type::request:
        return send_request(components, asked, data);
    case handler_type::snowball:
        return send_snowball(components, asked, data);
    default:
        return broadcast(components, asked, data);
    }
}

} // namespace inspect
