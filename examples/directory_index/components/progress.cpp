// Shows on a terminal that a long walk goes on.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/report_text.h"

#include <platform/process.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace directory_index {

namespace {

using clock = std::chrono::steady_clock;

constexpr auto patience = std::chrono::seconds(1);
constexpr auto pause = std::chrono::milliseconds(100);

class progress final {
public:
    explicit progress(const services& to) {
        IEventRouting& events = *to.events;
        if (!zel::platform::is_terminal(stderr))
            return;
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::any_file,
            [this](const std::string&, const event_data&, const routing_parameters&) {
                if (files_++ == 0)
                    next_ = clock::now() + patience;
                show_when_due();
                return true;
            },
            nullptr, "progress"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::walk_working,
            [this](const std::string&, const event_data&, const routing_parameters&) {
                show_when_due();
                return true;
            },
            nullptr, "progress: large files"));
        cookies_.push_back(events.RegisterEventHandler(
            nullptr, paths::walk_ended,
            [this](const std::string&, const event_data&, const routing_parameters&) {
                erase();
                files_ = 0;
                return true;
            },
            nullptr, "progress: end"));
    }

    // A walk that an exception ends does not say so.
    ~progress() { erase(); }

private:
    void show_when_due() {
        if (clock::now() < next_)
            return;
        const std::string text = counted(files_, "file") + " so far";
        std::fprintf(stderr, "\r%s", text.c_str());
        std::fflush(stderr);
        shown_ = text.size(); // never shorter than the text before
        next_ = clock::now() + pause;
    }

    void erase() {
        if (shown_ > 0)
            std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
        shown_ = 0;
    }

    clock::time_point next_;
    std::int64_t files_ = 0;
    std::size_t shown_ = 0;
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made =
        std::make_shared<directory_index::progress>(directory_index::services::of_this_process());
}
