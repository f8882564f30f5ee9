// The owner's handle of its tasks.
#pragma once

#include "generic/tasklib/src/tasks/low_level_task_container.h"

namespace zel::tasklib {

class task_container final : public task_container_ifc {
public:
    explicit task_container(std::string name)
        : low_level_(std::make_shared<low_level_task_container>(std::move(name))) {}
    /// Ends the tasks and waits for them.
    ~task_container() override;

    std::shared_ptr<task_container_low_level_ifc> get_low_level_container() override {
        return low_level_;
    }

    /// The same without another reference, for the owner.
    const std::shared_ptr<task_container_low_level_ifc>& low_level() const noexcept {
        return low_level_;
    }

    /// Cancels all tasks, those made later too, and waits for them; false when the
    /// time is over first.
    bool end_and_wait(threading::universal_timeout timeout);

private:
    const std::shared_ptr<task_container_low_level_ifc> low_level_;
};

} // namespace zel::tasklib
