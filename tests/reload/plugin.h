// What the plug-ins of the reload tests share: services and paths.
#pragma once

#include <event_routing/component.h>
#include <event_routing/typed.h>

#include <tasklib/keep_registered.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zel::test {

using namespace event_routing;

using cookies = std::vector<std::shared_ptr<tasklib::keep_registered>>;

/// Only the plug-in with payloads makes some: whoever is the first to make payloads of a type
/// makes those of all.
struct drawing {
    std::string title;
    std::vector<std::int32_t> strokes;
};

/// What is sent, by the traffic plug-in to whoever is loaded, unless said otherwise.
namespace paths {
inline constexpr const char* work = "work.item";    // events for asynchronous parts
inline constexpr const char* pulse = "pulse.item";  // cumulative events
inline constexpr const char* made = "drawing.made"; // events with a drawing, by its plug-in
inline constexpr const char* draw = "drawing.draw"; // a request, answered with a drawing
inline constexpr const char* count = "count.words"; // a request, answered with a number
inline constexpr const char* menu = "menu.build";   // a snowball
} // namespace paths

using Count = Request<std::int64_t, std::string>;
using Menu = Snowball<std::vector<std::string>>;

struct services {
    std::shared_ptr<IModule> module = get_module();
    std::shared_ptr<IEventRouting> events = get_event_routing(*module);
    std::shared_ptr<IRequestRouting> requests = get_request_routing(*module);
    std::shared_ptr<ISnowballRouting> snowballs = get_snowball_routing(*module);
};

} // namespace zel::test

template <>
struct zel::serialization::record<zel::test::drawing> {
    static constexpr std::string_view name = "struct zel::test::drawing";
    static constexpr std::tuple fields{field("title", &zel::test::drawing::title),
                                       field("strokes", &zel::test::drawing::strokes)};
};
