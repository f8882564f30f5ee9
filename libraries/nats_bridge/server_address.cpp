#include "libraries/nats_bridge/server_address.h"

#include <algorithm>
#include <string_view>

namespace zel::event_routing::nats {

namespace {

struct parts {
    std::string_view scheme; // with its "://"
    std::string_view rest;   // the name of the host, perhaps a port
};

parts parts_of(std::string_view server) {
    const std::size_t colon = server.find("://");
    const std::size_t after_scheme = colon == server.npos ? 0 : colon + 3;
    const std::size_t user = server.rfind('@'); // passwords have been seen with one in it
    const std::size_t after_user = user == server.npos ? after_scheme : user + 1;
    return {server.substr(0, after_scheme), server.substr(std::max(after_scheme, after_user))};
}

bool is_on_this_machine(std::string_view address) {
    if (address.starts_with("[::1]"))
        return true;
    const std::string_view name = address.substr(0, address.find_first_of(":/"));
    // A name may begin like a number of this machine and be another machine's.
    return name == "localhost" ||
           (name.starts_with("127.") && name.find_first_not_of("0123456789.") == name.npos);
}

} // namespace

std::string without_password(const std::string& server) {
    const auto [scheme, rest] = parts_of(server);
    return std::string(scheme) + std::string(rest);
}

bool is_encrypted(const bridge_options& options) {
    return !options.ca_file.empty() || !options.certificate_file.empty() ||
           std::any_of(options.servers.begin(), options.servers.end(),
                       [](const auto& server) { return server.starts_with("tls://"); });
}

bool can_be_overheard(const bridge_options& options, const std::string& server) {
    return !is_encrypted(options) && !is_on_this_machine(parts_of(server).rest);
}

} // namespace zel::event_routing::nats
