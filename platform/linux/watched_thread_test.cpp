#include "platform/src/watched_thread_test.h"

#include <platform/process.h>
#include <platform/thread_priority.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace zel::platform {

// Changes whenever the thread has run; empty while it is awake or when it is gone.
static std::string sleep_of(thread_id thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
    const std::string status(std::istreambuf_iterator<char>(file), {});
    const bool asleep = status.find("State:\tS") != std::string::npos;
    return asleep ? status.substr(status.find("voluntary_ctxt_switches:")) : "";
}

bool wait_until_asleep(thread_id thread) {
    // More than one look: a thread may doze on its way to the wait that is meant.
    int unchanged = 0;
    std::string before;
    for (milliseconds waited{0}; unchanged < 5 && waited < patience; ++waited) {
        const std::string now = sleep_of(thread);
        unchanged = !now.empty() && now == before ? unchanged + 1 : 0;
        before = now;
        sleep_for(milliseconds(1));
    }
    return unchanged == 5;
}

void end_this_thread() {
    pthread_exit(nullptr);
}

bool holds_in_a_child(const std::function<bool()>& look) {
    const pid_t child = fork();
    if (child == 0)
        _exit(look() ? 0 : 1);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

user_identity own_identity() {
    return {geteuid(), getegid()};
}

int lower_priority() {
    constexpr int lowest = -19;
    return std::max(thread_priority(this_thread_id()).value_or(0) - 5, lowest);
}

} // namespace zel::platform
