// Asks for what the task library offers, gives it back, and prints what failed.
#include "framework/lifetime/end_of_life.h"
#include "generic/tasklib/src/tasks/task_library.h"

#include <platform/diagnostics.h>

#include <iostream>

int main() {
    using namespace zel;
    const auto say = [](auto ask) {
        const auto failure = platform::guarded([&] { ask(); });
        std::cout << (failure ? exceptions::brief_text(failure) : "fine") << '\n';
    };
    const platform::exception_observer observer([](auto, auto arguments) {
        std::cout << reinterpret_cast<const std::exception*>(arguments[2])->what() << '\n';
    });
    say(&tasklib::get_tasks_module);
    say(&tasklib::get_task_processor);
    say(&tasklib::get_task_scheduler);
    lifetime::run_end_of_life_actions(lifetime::everything);
}
