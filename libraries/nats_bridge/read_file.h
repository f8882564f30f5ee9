// A whole file as a text.
#pragma once

#include "framework/exceptions/exceptions.h"

#include <fstream>
#include <iterator>
#include <string>

namespace zel::event_routing::nats {

/// Throws exceptions::error, which names the file.
inline std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file)
        throw exceptions::error("The file " + name + " cannot be read.");
    return text;
}

} // namespace zel::event_routing::nats
