#pragma once

namespace zel::event_routing {

class IModule;
class IEventRouting;
class IRequestRouting;
class ISnowballRouting;
class IInWndProcHandling;

namespace monitor {
struct event_handling_info_2;
struct request_handling_info_3;
struct snowball_handling_info_3;
} // namespace monitor

} // namespace zel::event_routing
