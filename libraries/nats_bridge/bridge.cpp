#include "libraries/nats_bridge/event_export.h"
#include "libraries/nats_bridge/event_import.h"
#include "libraries/nats_bridge/origin.h"
#include "libraries/nats_bridge/requests.h"

#include <event_routing/nats_bridge.h>

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

using clock = std::chrono::steady_clock;

platform::milliseconds left_until(clock::time_point end) {
    const auto left = std::chrono::ceil<platform::milliseconds>(end - clock::now());
    return std::max(left, platform::milliseconds(0));
}

} // namespace

class bridge_body {
public:
    explicit bridge_body(bridge_options checked);
    ~bridge_body() { end(options_.drain_limit); }
    bridge_body(const bridge_body&) = delete;
    bridge_body& operator=(const bridge_body&) = delete;

    bool wait_until_ready(platform::milliseconds limit);
    const std::string& origin() const noexcept { return origin_; }
    bridge_counts counts() const noexcept { return counts_.read(); }

private:
    void end(platform::milliseconds limit);

    const bridge_options options_;
    const std::string origin_;
    const std::shared_ptr<IModule> module_;
    counters counts_;
    platform::event changed_{platform::reset_mode::automatic, false}; // of the connection
    platform::event wake_export_{platform::reset_mode::automatic, false};
    task_runner tasks_;
    lost_events lost_;
    event_import event_import_;
    connection events_;
    event_export event_export_;
    std::unique_ptr<requests> requests_; // null where it could not be made
};

bridge_body::bridge_body(bridge_options checked)
    : options_(std::move(checked)), origin_(new_origin(options_.host)), module_(get_module()),
      tasks_(*module_), lost_(*module_, tasks_),
      event_import_(options_, origin_, *module_, tasks_, lost_, counts_),
      events_(options_, origin_, sending::in_batches,
              [this](bool) {
                  changed_.set();
                  wake_export_.set();
              }),
      event_export_(options_, origin_, *module_, events_, wake_export_, lost_, counts_) {
    const auto failure = platform::guarded([&] {
        requests_ =
            std::make_unique<requests>(options_, origin_, *module_, changed_, tasks_, counts_);
        requests_->begin();
        event_import_.begin(events_);
        event_export_.begin();
    });
    if (!failure)
        return;
    end(platform::milliseconds(0));
    std::rethrow_exception(failure);
}

// Nothing more goes out or comes in before what is under way is delivered.
void bridge_body::end(platform::milliseconds limit) {
    const auto end = clock::now() + limit;
    event_export_.end(left_until(end));
    events_.close(left_until(end));
    if (requests_)
        requests_->end(left_until(end));
    tasks_.wait_until_idle(left_until(end));
    event_import_.end();
    tasks_.end();
    if (requests_)
        requests_->close(left_until(end));
    lost_.broadcast_all(); // no task is left that could
}

bool bridge_body::wait_until_ready(platform::milliseconds limit) {
    const auto end = clock::now() + limit;
    while (!events_.flush(left_until(end)) || !requests_->is_ready(left_until(end))) {
        if (left_until(end).count() == 0)
            return false;
        changed_.wait(left_until(end));
    }
    return true;
}

bridge::bridge(bridge_options options)
    : body_((check(options), std::make_unique<bridge_body>(std::move(options)))) {}

bridge::~bridge() = default;

bool bridge::wait_until_ready(std::chrono::milliseconds limit) {
    return body_->wait_until_ready(limit);
}

const std::string& bridge::origin() const noexcept {
    return body_->origin();
}

bridge_counts bridge::counts() const {
    return body_->counts();
}

} // namespace zel::event_routing::nats
