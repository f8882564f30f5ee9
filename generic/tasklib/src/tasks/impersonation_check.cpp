#include "generic/tasklib/src/tasks/impersonation_check.h"

#include "framework/exceptions/exceptions.h"

#include <platform/credentials.h>
#include <platform/diagnostics.h>

#include <atomic>
#include <string_view>

namespace zel::tasklib {

namespace {

// Relaxed: only the first exchange counts.
constinit std::atomic<bool> reported{false};

std::uint32_t user_of(const platform::user_answer& answer) {
    if (answer.failure != 0)
        throw exceptions::error("GetTokenInformation TokenUser failed", answer.failure);
    return answer.user;
}

void replace_all(std::string& text, std::string_view what, std::string_view by) {
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

std::string report_text(std::string task_name) {
    std::string text = "Still Impersonated";
    if (user_of(platform::thread_user()) == user_of(platform::process_user()))
        text += " (self-impersonated)";
    if (task_name.empty())
        return text;
    replace_all(task_name, "struct", "");
    replace_all(task_name, "class", "");
    replace_all(task_name, "::", ".");
    return text + "-" + task_name;
}

// Whatever comes of the report, the thread goes back to itself.
struct reverting {
    ~reverting() { platform::revert_to_self(); }
};

} // namespace

void impersonation_check::end_impersonation(const std::string& task_name) {
    const reverting at_the_end;
    if (!reported.exchange(true, std::memory_order_relaxed))
        platform::raise_text_report(report_text(task_name));
}

} // namespace zel::tasklib
