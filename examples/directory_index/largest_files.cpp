// The ten largest files.
#include "examples/directory_index/components.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
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

class largest_files final : public component {
public:
    explicit largest_files(IEventRouting& events) {
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_size,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                largest_.insert({about.at(parameter::size).number, about.at(parameter::path).text});
                if (largest_.size() > most_shown)
                    largest_.erase(std::prev(largest_.end()));
                return true;
            },
            nullptr, "largest files"));
    }

    std::string report() const override {
        if (largest_.empty())
            return {};
        std::string text = "Largest files\n";
        for (const auto& [size, path] : largest_)
            text += fmt::format("{:>12}  {}\n", readable_size(size), printable(path));
        return text;
    }

private:
    std::set<sized_file> largest_;
    cookies cookies_;
};

} // namespace

std::unique_ptr<component> make_largest_files(IEventRouting& events) {
    return std::make_unique<largest_files>(events);
}

} // namespace directory_index
