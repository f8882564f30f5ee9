// The ten largest files.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <tuple>

namespace directory_index {

namespace {

constexpr std::size_t most_shown = 10;

struct sized_file {
    std::int64_t size;
    std::string path;

    // The largest first, of the same size by name.
    bool operator<(const sized_file& other) const {
        return std::tie(other.size, path) < std::tie(size, other.path);
    }
};

class largest_files final {
public:
    explicit largest_files(const services& to) {
        IEventRouting& events = *to.events;
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_size,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                files_.insert({about.at(parameter::size).number, about.at(parameter::path).text});
                return true;
            },
            nullptr, "largest files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_gone,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                files_.erase({about.at(parameter::size).number, about.at(parameter::path).text});
                return true;
            },
            nullptr, "largest files: gone files"));
        cookies_.push_back(register_section(to, "largest files", [this] { return report(); }));
    }

private:
    std::string report() const {
        if (files_.empty())
            return {};
        std::string text = "Largest files\n";
        std::size_t shown = 0;
        for (auto file = files_.begin(); file != files_.end() && shown < most_shown;
             ++file, ++shown)
            text += fmt::format("{:>12}  {}\n", readable_size(file->size), printable(file->path));
        return text;
    }

    // All of them: when one of the largest goes, another one takes its place.
    std::set<sized_file> files_;
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::largest_files>(
        directory_index::services::of_this_process());
}
