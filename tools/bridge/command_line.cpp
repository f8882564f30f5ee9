#include "tools/bridge/command_line.h"

#include "tools/inspect/command_line.h"
#include "tools/inspect/printable.h"

namespace bridge_program {

namespace {

using inspect::usage_error;

constexpr const char* version = "event_routing_bridge " EVENT_ROUTING_VERSION "\n";
constexpr const char* usage = R"(usage: event_routing_bridge --config FILE LIBRARY...
       event_routing_bridge --config FILE --check

Loads libraries with components, starts these, and connects them with the
components of other processes over NATS. Ends when it is interrupted (Ctrl-C) or
terminated, after it has delivered what is under way.

  --config FILE  which servers, and what crosses; bridge.md and
                 bridge.schema.json say what is in it
  --check        prints what would cross, and connects nothing
  --entry NAME   the exported function that starts the components of the
                 libraries after it (start_event_routing_component)
  --version      which version this is
  --help         this text
  --             what follows is no option
  LIBRARY        a file (./libspelling.so), or the name of a library that lies
                 beside this program or where the system looks (spelling)

Prints "ready" when it is connected and nothing that others send is missed any more.
Ends with 0 when it was asked to end, with 1 when a component or the bridge
failed, with 2 when the command line or the configuration is at fault.
)";

class parser {
public:
    explicit parser(const std::vector<std::string>& arguments)
        : next_(arguments.begin()), end_(arguments.end()) {}

    command_line parse() {
        while (next_ != end_ && result_.answer.empty())
            take(*next_++);
        if (!result_.answer.empty())
            return result_;
        if (result_.configuration.empty())
            throw usage_error("--config FILE is missing");
        if (result_.components.empty() && !result_.only_check)
            throw usage_error("LIBRARY is missing");
        if (!entry_is_used_)
            throw usage_error("--entry '" + inspect::printable(entry_) + "': no LIBRARY follows");
        return result_;
    }

private:
    void take(const std::string& argument) {
        if (only_words_ || !argument.starts_with('-')) {
            result_.components.push_back({argument, entry_});
            entry_is_used_ = true;
        } else if (argument == "--") {
            only_words_ = true;
        } else if (argument == "--help" || argument == "-h") {
            result_.answer = usage;
        } else if (argument == "--version") {
            result_.answer = version;
        } else if (argument == "--check") {
            result_.only_check = true;
        } else {
            take_option(argument);
        }
    }

    void take_option(const std::string& argument) {
        const auto equals = argument.find('=');
        const std::string option = argument.substr(0, equals);
        if (option != "--config" && option != "--entry")
            throw usage_error("unknown option '" + inspect::printable(argument) + "'");
        if (equals == std::string::npos && next_ == end_)
            throw usage_error(option + " needs a value");
        const std::string value =
            equals == std::string::npos ? *next_++ : argument.substr(equals + 1);
        if (option == "--config") {
            result_.configuration = value;
        } else {
            entry_ = value;
            entry_is_used_ = false;
        }
    }

    std::vector<std::string>::const_iterator next_;
    const std::vector<std::string>::const_iterator end_;
    command_line result_;
    std::string entry_ = "start_event_routing_component";
    bool entry_is_used_ = true; // by a library behind it
    bool only_words_ = false;
};

} // namespace

command_line command_line::parse(const std::vector<std::string>& arguments) {
    return parser(arguments).parse();
}

} // namespace bridge_program
