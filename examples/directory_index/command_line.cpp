#include "examples/directory_index/command_line.h"

#include "examples/directory_index/report_text.h"

#include <optional>

namespace directory_index {

const char* const usage = R"(usage: directory_index [--help] [--] DIR

Counts what lies in DIR and below: files, bytes and lines by extension, the
largest files, and what could not be read. Symbolic links are not followed.

Ends with 0 also when something below DIR could not be read, with 1 when the
program itself failed, with 2 when DIR or an option is at fault.
)";

command_line command_line::parse(const std::vector<std::string>& arguments) {
    command_line result;
    std::optional<std::string> folder;
    bool options = true;
    for (const auto& argument : arguments) {
        if (options && argument == "--") {
            options = false;
        } else if (options && (argument == "--help" || argument == "-h")) {
            result.help = true;
            return result;
        } else if (options && argument.starts_with('-')) {
            result.complaint = "unknown option '" + printable(argument) + "'";
            return result;
        } else if (folder) {
            result.complaint = "one DIR at a time, and '" + printable(argument) + "' is a second";
            return result;
        } else {
            folder = argument;
        }
    }
    if (folder)
        result.folder = *folder;
    else
        result.complaint = "DIR is missing";
    return result;
}

} // namespace directory_index
