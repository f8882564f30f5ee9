// A library that uses tasks, for unload.cpp.
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"

extern "C" ZEL_EXPORT void run_a_task() {
    using namespace zel::tasklib;
    const auto made = make_task("runs", nullptr, [] {});
    get_task_processor()->submit(made.share(), 0);
    made.get();
}
