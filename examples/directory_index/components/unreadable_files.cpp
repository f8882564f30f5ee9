// What could not be read, and why.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <map>

namespace directory_index {

namespace {

class unreadable_files final {
public:
    explicit unreadable_files(const services& to) {
        IEventRouting& events = *to.events;
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::unreadable,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                reasons_.emplace(about.at(parameter::path).text, about.at(parameter::reason).text);
                return true;
            },
            nullptr, "unreadable files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::unreadable_gone,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                reasons_.erase(about.at(parameter::path).text);
                return true;
            },
            nullptr, "unreadable files: no longer"));
        cookies_.push_back(register_section(to, "unreadable files", [this] { return report(); }));
    }

private:
    std::string report() const {
        if (reasons_.empty())
            return {};
        std::string text = "Unreadable\n";
        for (const auto& [path, reason] : reasons_)
            text += fmt::format("  {}: {}\n", printable(path), reason);
        return text;
    }

    std::map<std::string, std::string> reasons_;
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::unreadable_files>(
        directory_index::services::of_this_process());
}
