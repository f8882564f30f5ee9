// How much there is in all.
//
// A found file is broadcast to two paths, and both lead to the one registration
// here; its handler still runs once per file and is given both paths joined.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <cstdint>

namespace directory_index {

namespace {

class totals final {
public:
    explicit totals(const services& to) {
        IEventRouting& events = *to.events;
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_file,
            [this](const std::string& path, const event_data&, const routing_parameters& about) {
                if (path == paths::unreadable) {
                    ++unreadable_;
                } else {
                    ++files_;
                    bytes_ += about.at(parameter::size).number;
                }
                return true;
            },
            nullptr, "totals"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_gone,
            [this](const std::string&, const event_data&, const routing_parameters& about) {
                --files_;
                bytes_ -= about.at(parameter::size).number;
                return true;
            },
            nullptr, "totals: gone files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::unreadable_gone,
            [this](auto&&...) {
                --unreadable_;
                return true;
            },
            nullptr, "totals: no longer unreadable"));
        cookies_.push_back(register_section(to, "totals", [this] { return report(); }));
    }

private:
    std::string report() const {
        std::string text = fmt::format("Total: {}, {} ({})", counted(files_, "file"),
                                       readable_size(bytes_), counted(bytes_, "byte"));
        if (unreadable_ > 0)
            text += fmt::format(", {} unreadable", grouped(unreadable_));
        return text + "\n";
    }

    std::int64_t files_ = 0;
    std::int64_t bytes_ = 0;
    std::int64_t unreadable_ = 0;
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::totals>(directory_index::services::of_this_process());
}
