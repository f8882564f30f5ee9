#include "generic/tasklib/src/tasks/task_container.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

namespace zel::tasklib {

task_container::~task_container() {
    const platform::no_cancellation to_the_end;
    // When the task library has ended, nothing is left to wait for: it has canceled the
    // tasks and waited for them itself.
    platform::guarded([&] { end_and_wait({}); });
}

bool task_container::end_and_wait(threading::universal_timeout timeout) {
    low_level_->end();
    return low_level_->wait(timeout, 0);
}

} // namespace zel::tasklib
