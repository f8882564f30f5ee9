// Which files this process has mapped.
#pragma once

#include <fstream>
#include <string>

namespace zel::test {

/// Whether any part of a file of that name, such as "libspelling.so", is.
inline bool is_mapped(const std::string& file) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("/" + file) != std::string::npos)
            return true;
    return false;
}

} // namespace zel::test
