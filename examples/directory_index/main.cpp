// Indexes a folder: the host walks it and broadcasts an event for each file, components
// that do not know each other make a report of them.
#include "examples/directory_index/command_line.h"
#include "examples/directory_index/console.h"
#include "examples/directory_index/index_session.h"
#include "examples/directory_index/report_text.h"
#include "examples/directory_index/report_window.h"
#include "examples/directory_index/trace_file.h"

#include <framework/log/log_module.h>
#include <platform/interrupt.h>

#include <exception>
#include <filesystem>
#include <optional>

namespace {

using namespace directory_index;
using zel::platform::interrupt_watch;

enum exit_code { done = 0, failed = 1, bad_request = 2 };

int refuse(const std::string& text) {
    complain(text);
    return bad_request;
}

int refuse(const std::string& file, const std::error_code& reason) {
    return refuse("'" + printable(file) + "': " + reason.message());
}

int index_and_report(const command_line& command, const services& to, interrupt_watch& interrupt) {
    std::vector<std::string> own_outputs{"/dev/stdout", "/dev/stderr"};
    if (!command.trace.empty())
        own_outputs.push_back(command.trace);
    std::optional<report_window> window;
    printer show = &print;
    if (command.ui)
        show = [&ui = window.emplace()](const std::string& text) { ui.show(text); };
    index_session session(to,
                          {command.folder, command.watch, command.gitignore, own_outputs, show});
    if (command.handlers) {
        session.print_handlers();
        return session.all_components_are_there() ? done : failed;
    }
    if (const auto failure = session.index(interrupt.requested()))
        return refuse(command.folder, failure);
    if (interrupt.exit_code())
        complain("interrupted; this is what was found until then");
    bool is_complete = session.all_components_are_there();
    if (command.questions.empty())
        session.print_report();
    else
        is_complete = session.print_answers(command.questions) && is_complete;
    if (command.watch && !interrupt.exit_code()) {
        if (const auto failure = session.follow(interrupt.requested()))
            return refuse(command.folder, failure);
        show("\n");
        session.print_report();
    }
    return interrupt.exit_code().value_or(is_complete ? done : failed);
}

int run(const command_line& command) {
    interrupt_watch interrupt;
    const auto log = zel::log::get_log_module(); // nothing can be registered without it
    if (command.log)
        log->SetDefaultSinkSeverity(zel::log::severity::statistics);
    const auto to = services::of_this_process();
    if (command.trace.empty())
        return index_and_report(command, to, interrupt);

    if (std::error_code failure; !command.handlers) {
        // Before the trace replaces what its file may hold.
        const std::filesystem::directory_iterator attempt(command.folder, failure);
        if (failure)
            return refuse(command.folder, failure);
    }
    std::optional<trace_file> trace;
    try {
        trace.emplace(command.trace, to);
    } catch (const std::system_error& failure) {
        return refuse(command.trace, failure.code());
    }
    const int code = index_and_report(command, to, interrupt);
    try {
        trace->close();
        if (const auto omission = trace->omission(); !omission.empty())
            complain("the trace '" + printable(command.trace) + "' " + omission);
    } catch (const std::system_error& failure) {
        complain("the trace '" + printable(command.trace) +
                 "' is not complete: " + failure.code().message());
        return failed;
    }
    return code;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const auto command = command_line::parse({argv + (argc > 0), argv + argc});
        if (!command.complaint.empty())
            return refuse(command.complaint + "; --help shows the usage");
        if (command.help) {
            print(usage);
            return done;
        }
        return run(command);
    } catch (const std::exception& failure) {
        complain(failure.what());
        return failed;
    }
}
