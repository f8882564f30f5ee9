#include "examples/directory_index/command_line.h"

#include "examples/directory_index/report_text.h"

#include <optional>

namespace directory_index {

const char* const usage = R"(usage: directory_index [OPTION]... [--] DIR
       directory_index --handlers

Counts what lies in DIR and below: files, bytes and lines by extension, the
largest files, the most frequent words of text files up to 4 MiB, and what could
not be read. Symbolic links are not followed.

  --ask WORD... instead of the report, print which files have each WORD; a WORD
                like index.NAME asks that question of the index
  --gitignore   leave out .git and what DIR/.gitignore names; in the file, names and
                paths from DIR on are understood, with * and ?
  --watch       stay, and report what changes until Ctrl-C
  --trace FILE  write what the program's parts did, and when, to FILE, for
                ui.perfetto.dev or chrome://tracing; of a long run only some
                messages, so that FILE gets no larger than about 128 MiB
  --ui          print in the thread of a window, as programs with windows do
  --log         show the log on standard error, with statistics at the end
  --handlers    instead of all that, print as JSON which handlers the program's parts
                have registered
  --help        this text

Ends with 0 also when something below DIR could not be read, with 1 when a
question has no answer or the program itself failed, with 2 when DIR or an option
is at fault. At Ctrl-C it reports what it has found and ends with 130; a second
Ctrl-C ends it at once.
)";

namespace {

/// Takes one argument after the other.
class parser {
public:
    command_line result;

    void take(const std::string& argument) {
        if (wants_trace_file_) {
            result.trace = argument;
            wants_trace_file_ = false;
        } else if (options_ && argument.starts_with('-')) {
            take_option(argument);
        } else if (takes_words_) {
            result.questions.push_back(argument);
        } else if (folder_) {
            complain("one DIR at a time, and '" + printable(argument) + "' is a second");
        } else {
            folder_ = argument;
        }
    }

    void end() {
        if (wants_trace_file_ || (traces_ && result.trace.empty()))
            complain("--trace needs a FILE");
        if (asks_ && result.questions.empty())
            complain("--ask needs a WORD");
        if (!folder_ && !result.handlers)
            complain("DIR is missing");
        result.folder = folder_.value_or("");
    }

private:
    void take_option(const std::string& option) {
        takes_words_ = option == "--ask";
        if (option == "--")
            options_ = false;
        else if (option == "--help" || option == "-h")
            result.help = true;
        else if (option == "--watch")
            result.watch = true;
        else if (option == "--handlers")
            result.handlers = true;
        else if (option == "--ui")
            result.ui = true;
        else if (option == "--gitignore")
            result.gitignore = true;
        else if (option == "--log")
            result.log = true;
        else if (option == "--ask")
            asks_ = true;
        else if (option == "--trace")
            traces_ = wants_trace_file_ = true;
        else
            complain("unknown option '" + printable(option) + "'");
    }

    // The first one counts.
    void complain(const std::string& text) {
        if (result.complaint.empty())
            result.complaint = text;
    }

    bool options_ = true;
    bool asks_ = false;
    bool takes_words_ = false; // until the next option
    bool traces_ = false;
    bool wants_trace_file_ = false;
    std::optional<std::string> folder_;
};

} // namespace

command_line command_line::parse(const std::vector<std::string>& arguments) {
    parser reading;
    for (const auto& argument : arguments) {
        reading.take(argument);
        if (reading.result.help)
            return reading.result;
    }
    reading.end();
    return reading.result;
}

} // namespace directory_index
