#include <tasklib/task_threads_module.h>

#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/neighbour_module.h"

namespace zel::tasklib {

namespace {

class task_threads_library : public mi::neighbour_module<task_threads_module> {
public:
    task_threads_library()
        : neighbour_module({"zel_tasks_core", "_ZN3zel7tasklib6detail23CreateTaskThreadsModuleEv",
                            "_ZN3zel7tasklib6detail23GetModuleLifetimeObjectEv"}) {}
};

// With the other references to the task library.
constexpr int longevity = lifetime::host_threshold + 1000;
constinit lifetime::basic_singleton<task_threads_library,
                                    lifetime::const_longevity_traits<longevity>>
    library;

} // namespace

std::shared_ptr<task_threads_module> get_task_threads_module() {
    return mi::require_module<exceptions::fatal>(library, "Tasks module already destroyed");
}

} // namespace zel::tasklib
