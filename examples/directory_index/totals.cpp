// How much there is in all.
//
// A found file is broadcast to two paths, and both lead to the one registration
// here; its handler still runs once per file and is given both paths joined.
#include "examples/directory_index/components.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report_text.h"

#include <fmt/format.h>

#include <cstdint>

namespace directory_index {

namespace {

class totals final : public component {
public:
    explicit totals(IEventRouting& events) {
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
    }

    std::string report() const override {
        std::string text = fmt::format("Total: {}, {} ({})", counted(files_, "file"),
                                       readable_size(bytes_), counted(bytes_, "byte"));
        if (unreadable_ > 0)
            text += fmt::format(", {} unreadable", grouped(unreadable_));
        return text + "\n";
    }

private:
    std::int64_t files_ = 0;
    std::int64_t bytes_ = 0;
    std::int64_t unreadable_ = 0;
    cookies cookies_;
};

} // namespace

std::unique_ptr<component> make_totals(IEventRouting& events) {
    return std::make_unique<totals>(events);
}

} // namespace directory_index
