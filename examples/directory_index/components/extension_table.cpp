// Files, bytes and lines by extension.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
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

    void add(const counts& other, int times = 1) {
        files += times * other.files;
        bytes += times * other.bytes;
        if (other.lines)
            lines = lines.value_or(0) + times * *other.lines;
    }
};

using row = std::pair<std::string, counts>;

std::string line_of(const row& shown) {
    const auto& [name, sum] = shown;
    // The name stands last: it may be of any length and width.
    return fmt::format("{:>12}{:>13}{:>14}  {}\n", grouped(sum.files), readable_size(sum.bytes),
                       sum.lines ? grouped(*sum.lines) : "-", name);
}

class extension_table final {
public:
    explicit extension_table(const services& to) {
        IEventRouting& events = *to.events;
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_found,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                extensions_[path.substr(paths::found.size())].add(
                    {1, about.at(parameter::size).number, {}});
                return true;
            },
            nullptr, "extension table: files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_gone,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                take_back(path.substr(paths::gone.size()),
                          {1, about.at(parameter::size).number, {}});
                return true;
            },
            nullptr, "extension table: gone files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_lines,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                extensions_[path.substr(paths::lines.size())].add(
                    {0, 0, about.at(parameter::lines).number});
                return true;
            },
            nullptr, "extension table: lines"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_lines_gone,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                take_back(path.substr(paths::lines_gone.size()),
                          {0, 0, about.at(parameter::lines).number});
                return true;
            },
            nullptr, "extension table: gone lines"));
        cookies_.push_back(register_section(to, "extension table", [this] { return report(); }));
    }

private:
    std::string report() const {
        if (extensions_.empty())
            return {};
        std::string text =
            fmt::format("{:>12}{:>13}{:>14}  {}\n", "Files", "Size", "Lines", "Extension");
        for (const row& shown : rows())
            text += line_of(shown);
        return text;
    }

    // The lines of a file go before or after the file itself, whoever is asked first.
    void take_back(const std::string& extension, const counts& gone) {
        counts& left = extensions_[extension];
        left.add(gone, -1);
        if (left.files == 0 && left.lines.value_or(0) == 0)
            extensions_.erase(extension);
    }

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

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::extension_table>(
        directory_index::services::of_this_process());
}
