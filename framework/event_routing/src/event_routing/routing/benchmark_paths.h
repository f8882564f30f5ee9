// Paths of four subnodes that benchmarks register.
#pragma once

#include <cmath>
#include <string>
#include <vector>

namespace zel::event_routing {

/// One of so many paths that are spread evenly over four levels.
inline std::string four_level_path(int number, int registered) {
    const int fan_out = static_cast<int>(std::ceil(std::pow(registered, 0.25)));
    std::string path;
    for (const char* const level : {"subsystem", "component", "object", "change"}) {
        if (!path.empty())
            path += '.';
        path += level + std::to_string(number % fan_out);
        number /= fan_out;
    }
    return path;
}

/// The path and, one subnode after the other off its end, the wildcards above it.
inline std::vector<std::string> path_on_every_level(std::string path) {
    std::vector<std::string> levels = {path};
    for (auto dot = path.rfind('.'); dot != std::string::npos; dot = path.rfind('.')) {
        path.resize(dot);
        levels.push_back(path + ".*");
    }
    return levels;
}

} // namespace zel::event_routing
