// Indexes a folder: the walker broadcasts one event per file, components that do
// not know each other make a report of them. The host below makes them, lets the
// walker run, and prints what each has to say.
#include "examples/directory_index/command_line.h"
#include "examples/directory_index/components.h"
#include "examples/directory_index/file_walker.h"
#include "examples/directory_index/report_text.h"

#include <event_routing/client.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

namespace {

using namespace directory_index;

enum exit_code { done = 0, failed = 1, bad_request = 2 };

// In the order of their reports.
std::vector<std::unique_ptr<component>> make_components(IEventRouting& events) {
    std::vector<std::unique_ptr<component>> components;
    for (const auto make : {make_progress, make_extension_table, make_largest_files, make_totals,
                            make_line_counter, make_unreadable_files})
        components.push_back(make(events));
    return components;
}

void print(const std::string& text) {
    errno = 0;
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw std::system_error(errno, std::generic_category(), "The report cannot be written");
}

int complain(const std::string& text) {
    std::fprintf(stderr, "directory_index: %s\n", text.c_str());
    return bad_request;
}

int index_folder(const std::string& folder) {
    const auto module = zel::event_routing::get_module();
    const auto events = zel::event_routing::get_event_routing(*module);
    const auto components = make_components(*events);

    if (const auto failure = file_walker(*events).walk(folder))
        return complain("'" + printable(folder) + "': " + failure.message());

    std::string text;
    for (const auto& component : components) {
        const std::string section = component->report();
        if (!text.empty() && !section.empty())
            text += '\n';
        text += section;
    }
    print(text);
    return done;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const auto command = command_line::parse({argv + (argc > 0), argv + argc});
        if (!command.complaint.empty())
            return complain(command.complaint + "; --help shows the usage");
        if (command.help) {
            print(usage);
            return done;
        }
        return index_folder(command.folder);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "directory_index: %s\n", failure.what());
        return failed;
    }
}
