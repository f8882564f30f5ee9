#include "libraries/nats_bridge/origin.h"

#include <random>

namespace zel::event_routing::nats {

std::string new_origin(const std::string& host) {
    std::random_device random; // the system's: two hosts that start at once get different ones
    std::string origin = host + '#';
    for (int digit = 0; digit < 16; ++digit)
        origin += "0123456789abcdef"[random() % 16];
    return origin;
}

std::string host_of(const std::string& origin) {
    return origin.substr(0, origin.rfind('#'));
}

} // namespace zel::event_routing::nats
