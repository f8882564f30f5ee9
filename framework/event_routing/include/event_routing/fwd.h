#pragma once

namespace zel::event_routing {

class IModule;
class IEventRouting;
class IRequestRouting;
class ISnowballRouting;
class IInWndProcHandling;

namespace monitor {
struct event_handling_info_2;
}

} // namespace zel::event_routing
