// Files, bytes and lines by extension.
#include "examples/directory_index/components.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace directory_index {

namespace {

constexpr std::size_t longest_table = 20;

struct counts {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
    std::optional<std::int64_t> lines; // none: nobody counted any

    void add(const counts& other) {
        files += other.files;
        bytes += other.bytes;
        if (other.lines)
            lines = lines.value_or(0) + *other.lines;
    }
};

using row = std::pair<std::string, counts>;

std::string line_of(const row& shown) {
    const auto& [name, sum] = shown;
    // The name stands last: it may be of any length and width.
    return fmt::format("{:>12}{:>13}{:>14}  {}\n", grouped(sum.files), readable_size(sum.bytes),
                       sum.lines ? grouped(*sum.lines) : "-", name);
}

class extension_table final : public component {
public:
    explicit extension_table(IEventRouting& events) {
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_found,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                extensions_[path.substr(paths::found.size())].add(
                    {1, about.at(parameter::size).number, {}});
                return true;
            },
            nullptr, "extension table: files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_lines,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                extensions_[path.substr(paths::lines.size())].add(
                    {0, 0, about.at(parameter::lines).number});
                return true;
            },
            nullptr, "extension table: lines"));
    }

    std::string report() const override {
        if (extensions_.empty())
            return {};
        std::string text =
            fmt::format("{:>12}{:>13}{:>14}  {}\n", "Files", "Size", "Lines", "Extension");
        for (const row& shown : rows())
            text += line_of(shown);
        return text;
    }

private:
    // By bytes; those that find no room are summed up in the last row.
    std::vector<row> rows() const {
        std::vector<row> sorted;
        for (const auto& [extension, sum] : extensions_)
            sorted.emplace_back(extension.empty() ? "(none)" : printable(extension), sum);
        // Stable: of the same size, the map's order of names stays.
        std::stable_sort(sorted.begin(), sorted.end(), [](const row& a, const row& b) {
            return a.second.bytes > b.second.bytes;
        });
        if (sorted.size() > longest_table) {
            row others{"(others)", {}};
            for (std::size_t i = longest_table; i < sorted.size(); ++i)
                others.second.add(sorted[i].second);
            sorted.resize(longest_table);
            sorted.push_back(std::move(others));
        }
        return sorted;
    }

    std::map<std::string, counts> extensions_;
    cookies cookies_;
};

} // namespace

std::unique_ptr<component> make_extension_table(IEventRouting& events) {
    return std::make_unique<extension_table>(events);
}

} // namespace directory_index
