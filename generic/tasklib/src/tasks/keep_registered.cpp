#include "generic/tasklib/src/tasks/reg_cookie.h"

#include "generic/tasklib/src/tasks/tasks_log.h"

#include <platform/image_use.h>

namespace zel::tasklib {

namespace {

constinit log::source_position release_failed(__FILE__, 10);

class action_cookie final : public keep_registered {
public:
    explicit action_cookie(std::function<void()> action)
        : use_(platform::image_that_made(action), "action of a cookie", {}),
          action_(std::move(action)) {}
    ~action_cookie() override {
        const platform::no_cancellation to_the_end;
        if (const auto failure = platform::guarded(action_))
            tasks_log.report_handler_failure(release_failed, failure, [] {
                return std::string("zel::tasklib::make_reg_cookie: release failed.");
            });
        action_ = nullptr; // with what it has captured
    }

private:
    const platform::image_use use_; // ends after the action
    std::function<void()> action_;
};

} // namespace

std::shared_ptr<keep_registered> make_reg_cookie(std::function<void()> action) {
    return std::make_shared<action_cookie>(std::move(action));
}

} // namespace zel::tasklib
