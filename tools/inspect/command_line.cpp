#include "tools/inspect/command_line.h"

#include "framework/serialization/json_text.h"
#include "tools/inspect/printable.h"
#include "tools/inspect/services.h"
#include "tools/inspect/usage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <span>
#include <string_view>
#include <utility>

namespace inspect {

namespace {

using zel::event_routing::enumerate_handlers::handler_type;

// Quotes an argument, cut to what is enough to recognise it by.
std::string shown(std::string_view text) {
    constexpr std::size_t enough = 200;
    if (text.size() <= enough)
        return "'" + printable(text) + "'";
    std::size_t end = enough;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end; // not inside of a character
    return "'" + printable(text.substr(0, end)) + "...'";
}

struct named_command {
    std::string_view name;
    command what;
    std::vector<std::string_view> options; // besides --entry and --help
    std::vector<std::string_view> formats;
};

const std::array commands = {
    named_command{"list", command::list, {"--format"}, {"text", "json", "dot", "svg"}},
    named_command{"reach", command::reach, {"--type", "--channel", "--format"}, {"text", "json"}},
    named_command{"send", command::send, {"--payload", "--number", "--text", "--channel"}, {}},
    named_command{"watch",
                  command::watch,
                  {"--seconds", "--interval", "--rows", "--format"},
                  {"text", "json"}},
};

const named_command& command_named(const std::string& name) {
    for (const auto& known : commands)
        if (known.name == name)
            return known;
    throw usage_error("unknown command " + shown(name));
}

bool contains(const std::vector<std::string_view>& list, std::string_view text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

handler_type type_named(const std::string& name) {
    for (const auto type : {handler_type::event, handler_type::request, handler_type::snowball})
        if (name_of(type) == name)
            return type;
    throw usage_error("TYPE is event, request or snowball, and not " + shown(name));
}

template <class Number>
Number number_in(const std::string& text, const std::string& option) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    if (failure != std::errc() || rest != end)
        throw usage_error(option + " takes a number, and not " + shown(text));
    return number;
}

zel::platform::milliseconds seconds_in(const std::string& text, const std::string& option) {
    constexpr double longest = 1e9; // 30 years; clocks overflow much later
    const double seconds = number_in<double>(text, option);
    if (!(seconds >= 0.001 && seconds <= longest))
        throw usage_error(option + " takes 0.001 to 1000000000 seconds, and not " + shown(text));
    return zel::platform::milliseconds(std::llround(seconds * 1000));
}

std::pair<std::string, std::string> named_value(const std::string& text,
                                                const std::string& option) {
    const auto end = text.find('=');
    if (end == std::string::npos || end == 0)
        throw usage_error(option + " takes NAME=VALUE, and not " + shown(text));
    return {text.substr(0, end), text.substr(end + 1)};
}

Json::Value document_in(const std::string& text) {
    try {
        return zel::serialization::json_from_text(text);
    } catch (const zel::exceptions::error& failure) {
        throw usage_error("--payload " + shown(text) + ": " + failure.what());
    }
}

class parser {
public:
    explicit parser(std::span<const std::string> arguments) : left_(arguments) {}

    command_line parse() {
        if (left_.empty())
            throw usage_error("COMMAND is missing");
        const std::string first = next();
        if (first == "--help" || first == "-h" || first == "help") {
            result_.help = usage;
            return result_;
        }
        command_ = &command_named(first);
        result_.what = command_->what;
        while (result_.help.empty() && !left_.empty())
            take(next());
        if (result_.help.empty())
            require_whole();
        return std::move(result_);
    }

private:
    std::string next() {
        std::string argument = left_.front();
        left_ = left_.subspan(1);
        return argument;
    }

    void take(const std::string& argument) {
        if (only_words_ || !argument.starts_with('-') || argument == "-") {
            take_word(argument);
        } else if (argument == "--") {
            only_words_ = true;
        } else if (argument == "--help" || argument == "-h") {
            result_.help = usage_of(result_.what);
        } else {
            const auto end = argument.find('=');
            const std::string option = argument.substr(0, end);
            if (option != "--entry" && !contains(command_->options, option))
                throw usage_error("unknown option " + shown(option));
            if (end == std::string::npos && left_.empty())
                throw usage_error(option + " needs a value");
            take_option(option, end == std::string::npos ? next() : argument.substr(end + 1));
        }
    }

    void take_option(const std::string& option, const std::string& value) {
        if (option == "--entry") {
            entry_ = value;
            entry_is_used_ = false;
        } else if (option == "--format") {
            if (!contains(command_->formats, value))
                throw usage_error("there is no format " + shown(value));
            result_.format = value;
        } else if (option == "--type") {
            result_.type = type_named(value);
        } else if (option == "--channel") {
            result_.channel = value;
        } else if (option == "--payload") {
            result_.payload = document_in(value);
        } else if (option == "--number") {
            const auto [name, number] = named_value(value, option);
            result_.parameters[name] = number_in<std::int64_t>(number, option + " " + name);
        } else if (option == "--text") {
            const auto [name, text] = named_value(value, option);
            result_.parameters[name] = text;
        } else if (option == "--seconds") {
            result_.duration = seconds_in(value, option);
        } else if (option == "--interval") {
            result_.interval = seconds_in(value, option);
        } else {
            result_.rows = number_in<std::size_t>(value, option);
        }
    }

    void take_word(const std::string& word) {
        const bool has_path = result_.what == command::reach || result_.what == command::send;
        if (result_.what == command::send && !result_.type)
            result_.type = type_named(word);
        else if (has_path && !std::exchange(path_is_known_, true))
            result_.path = word;
        else
            take_library(word);
    }

    void take_library(const std::string& library) {
        result_.components.push_back({library, entry_});
        entry_is_used_ = true;
    }

    void require_whole() const {
        if (result_.what == command::send && !result_.type)
            throw usage_error("TYPE is missing");
        if ((result_.what == command::reach || result_.what == command::send) && !path_is_known_)
            throw usage_error("PATH is missing");
        if (result_.components.empty())
            throw usage_error("LIBRARY is missing");
        if (!entry_is_used_)
            throw usage_error("--entry " + shown(entry_) + ": no LIBRARY follows");
        if (result_.channel && result_.type.value_or(handler_type::event) != handler_type::event)
            throw usage_error("--channel is for events");
    }

    std::span<const std::string> left_;
    const named_command* command_ = nullptr;
    command_line result_;
    std::string entry_ = "start_event_routing_component";
    bool entry_is_used_ = true; // by a library behind it
    bool path_is_known_ = false;
    bool only_words_ = false;
};

} // namespace

command_line command_line::parse(const std::vector<std::string>& arguments) {
    return parser(arguments).parse();
}

} // namespace inspect
