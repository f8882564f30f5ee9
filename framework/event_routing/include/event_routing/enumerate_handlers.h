// What the requests "event_routing.enumerate_handlers" and
// "event_routing.enumerate_handlers2" answer: every handler that is registered.
//
// Binary and JSON forms follow from the declarations below. In JSON a list is
//     {"type": {"value": 1, "name": "event"},
//      "handlers": [{"path": "a.b", "description": "title bar"}]}
// with "channelId" besides in the second one, and an answer is [[list, ...], []].
#pragma once

#include <framework/serialization/json_form.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace zel::event_routing::enumerate_handlers {

/// Which service a handler is registered with.
enum class handler_type : std::int32_t { undefined = 0, event = 1, request = 2, snowball = 3 };

/// Path and description of each handler.
using handler_texts = std::vector<std::pair<std::string, std::string>>;

/// The handlers of one routing service.
struct handler_list {
    handler_type type = handler_type::undefined; ///< which service
    handler_texts handlers;                      ///< in byte order of the subnodes

    bool operator==(const handler_list&) const = default;
};

/// The same, with the name of the event routing instance; empty for every other service.
struct handler_list_2 {
    handler_type type = handler_type::undefined; ///< which service
    handler_texts handlers;                      ///< in byte order of the subnodes
    std::string channelId;                       ///< the instance's name

    bool operator==(const handler_list_2&) const = default;
};

/// The payload of both requests.
using input = std::tuple<>;
/// The answer of the first.
using output = std::pair<std::vector<handler_list>, std::tuple<>>;
/// The answer of the second.
using output_2 = std::pair<std::vector<handler_list_2>, std::tuple<>>;

/// Each handler is an object with named members, not an array as other pairs are.
struct handler_texts_json_form {
    /// An array of objects.
    static Json::Value to(const handler_texts& handlers, const serialization::json_place& place);
    /// Throws serialization::conversion_error for anything else.
    static void from(const Json::Value& json, handler_texts& handlers,
                     const serialization::json_place& place);
};

/// Texts and values of handler_type, each by the other.
using handler_type_ConversionMaps = serialization::impl::EnumConversionMaps<handler_type>;

} // namespace zel::event_routing::enumerate_handlers

/// @cond names of what is documented above
template <>
struct zel::serialization::enumeration<zel::event_routing::enumerate_handlers::handler_type> {
    using type = event_routing::enumerate_handlers::handler_type;
    static constexpr std::string_view name =
        "enum zel::event_routing::enumerate_handlers::handler_type";
    static constexpr std::pair<type, std::string_view> values[] = {{type::undefined, "undefined"},
                                                                   {type::event, "event"},
                                                                   {type::request, "request"},
                                                                   {type::snowball, "snowball"}};
};

template <>
struct zel::serialization::record<zel::event_routing::enumerate_handlers::handler_list> {
    using type = event_routing::enumerate_handlers::handler_list;
    static constexpr std::string_view name =
        "struct zel::event_routing::enumerate_handlers::handler_list";
    static constexpr std::tuple fields{
        field("type", &type::type),
        field("handlers", &type::handlers,
              event_routing::enumerate_handlers::handler_texts_json_form())};
};

template <>
struct zel::serialization::record<zel::event_routing::enumerate_handlers::handler_list_2> {
    using type = event_routing::enumerate_handlers::handler_list_2;
    static constexpr std::string_view name =
        "struct zel::event_routing::enumerate_handlers::handler_list_2";
    static constexpr std::tuple fields{
        field("type", &type::type),
        field("handlers", &type::handlers,
              event_routing::enumerate_handlers::handler_texts_json_form()),
        field("channelId", &type::channelId)};
};
/// @endcond

namespace zel::event_routing::enumerate_handlers {

inline Json::Value handler_texts_json_form::to(const handler_texts& handlers,
                                               const serialization::json_place& place) {
    return serialization::SeqContainerToJson(
        handlers, place, [](const auto& handler, const serialization::json_place& inside) {
            Json::Value json(Json::objectValue);
            json["path"] = serialization::ToJson(handler.first, {inside, "path"});
            json["description"] = serialization::ToJson(handler.second, {inside, "description"});
            return json;
        });
}

inline void handler_texts_json_form::from(const Json::Value& json, handler_texts& handlers,
                                          const serialization::json_place& place) {
    serialization::SeqContainerFromJson(
        json, handlers, place,
        [](const Json::Value& element, auto& handler, const serialization::json_place& inside) {
            using serialization::json_values::member;
            serialization::FromJson(member(element, "path"), handler.first, {inside, "path"});
            serialization::FromJson(member(element, "description"), handler.second,
                                    {inside, "description"});
        });
}

} // namespace zel::event_routing::enumerate_handlers
