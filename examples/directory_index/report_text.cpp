#include "examples/directory_index/report_text.h"

#include <framework/text/utf8.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>

namespace directory_index {

namespace {

std::string escaped(char c) {
    switch (c) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    default:
        return fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
}

} // namespace

std::string grouped(std::int64_t number) {
    std::string digits = std::to_string(number);
    for (auto place = static_cast<std::ptrdiff_t>(digits.size()) - 3; place > 0; place -= 3)
        digits.insert(static_cast<std::size_t>(place), 1, ',');
    return digits;
}

std::string counted(std::int64_t number, std::string_view noun) {
    return fmt::format("{} {}{}", grouped(number), noun, number == 1 ? "" : "s");
}

std::string readable_size(std::int64_t bytes) {
    constexpr std::array units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024)
        return fmt::format("{} B", bytes);
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // From here on one decimal would show 1024.0.
    for (; value >= 1023.95 && unit + 1 < units.size(); ++unit)
        value /= 1024;
    return fmt::format("{:.1f} {}", value, units[unit]);
}

std::string printable(std::string_view name) {
    std::string shown;
    shown.reserve(name.size());
    while (!name.empty()) {
        const std::size_t length = zel::text::character_length(name);
        const std::string_view character = name.substr(0, length == 0 ? 1 : length);
        if (length == 0 || zel::text::is_control(character) || character == "\\")
            for (const char c : character)
                shown += escaped(c);
        else
            shown += character;
        name.remove_prefix(character.size());
    }
    return shown;
}

} // namespace directory_index
