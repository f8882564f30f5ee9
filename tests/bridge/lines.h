// Lines between a test and its hosts: a word, and words in hexadecimal digits ("-" for an empty
// one), so that these may have any bytes.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::nats {

using words = std::vector<std::string>;
inline constexpr std::string_view hex_digits = "0123456789abcdef";

inline std::string line_of(const words& entry) {
    std::string line = entry.front();
    for (std::size_t i = 1; i < entry.size(); ++i) {
        line += entry[i].empty() ? " -" : " ";
        for (const unsigned char byte : entry[i])
            for (const int digit : {byte >> 4, byte & 15})
                line += hex_digits[static_cast<std::size_t>(digit)];
    }
    return line;
}

inline words words_in(const std::string& line) {
    std::istringstream in(line);
    words entry(1);
    in >> entry.front();
    for (std::string digits; in >> digits;) {
        std::string& word = entry.emplace_back();
        for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
            word +=
                static_cast<char>(hex_digits.find(digits[i]) * 16 + hex_digits.find(digits[i + 1]));
    }
    return entry;
}

} // namespace zel::event_routing::nats
