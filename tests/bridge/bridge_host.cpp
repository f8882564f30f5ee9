// A host for the tests of the bridge, ordered about by lines on its standard input.
//
//     bridge_host NAME PORT
//
// A line is a command and its arguments. Every command is answered by lines, the last of which
// begins with "ok" or "failed".
#include "tests/bridge/lines.h"

#include <event_routing/client.h>
#include <event_routing/component_host.h>
#include <event_routing/exceptions.h>
#include <event_routing/nats_bridge.h>
#include <framework/serialization/payload.h>

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/process.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zel;
using namespace zel::event_routing;
using nats::words;

void say(const words& line) {
    std::cout << nats::line_of(line) << '\n' << std::flush;
}

// Longer than the whole test may take, so that a busy machine fails none.
constexpr std::chrono::hours ages{1};

// What its handlers were given, a line each.
class journal {
public:
    void add(words entry) {
        platform::scoped_lock inside(guard_);
        ++counts_[entry.front()];
        entries_.push_back(std::move(entry));
        grown_.set();
    }

    // Until so many entries begin with the word.
    void await(const std::string& first, std::size_t count) {
        for (;; grown_.wait()) {
            platform::scoped_lock inside(guard_);
            if (counts_[first] >= count)
                return;
            grown_.reset();
        }
    }

    std::vector<words> all() {
        platform::scoped_lock inside(guard_);
        return entries_;
    }

private:
    platform::critical_section guard_; // between handlers and commands
    std::vector<words> entries_ ZEL_GUARDED_BY(guard_);
    std::map<std::string, std::size_t> counts_ ZEL_GUARDED_BY(guard_); // by their first words
    platform::event grown_{platform::reset_mode::manual, false};
};

class host {
public:
    host(const std::string& name, const std::string& port) {
        options_.servers = {"nats://127.0.0.1:" + port};
        options_.realm = "test";
        options_.host = name;
        options_.drain_limit = ages;
        serialization::register_data_type<std::string>(); // a host that only hears makes none
        add_command("export", [this](const words& w) {
            options_.export_events.push_back({w[1], w[2]});
        });
        add_command("import", [this](const words& w) {
            options_.import_events.push_back({w[1], w[2]});
        });
        add_command("row", [this](const words& w) {
            options_.most_waiting = std::stoul(w[1]);
            options_.when_full =
                w[2] == "oldest" ? nats::full_row::drop_oldest : nats::full_row::drop_newest;
        });
        add_command("start",
                    [this](const words&) { bridge_ = std::make_unique<nats::bridge>(options_); });
        add_command("ready", [this](const words&) {
            if (!bridge_->wait_until_ready(ages))
                throw exceptions::error("not ready");
        });
        add_command("listen", [this](const words& w) { listen(w[1], w[2], w[3]); });
        add_command("echo", [this](const words& w) { echo(w[1]); });
        add_command("send", [this](const words& w) { send(w[1], w[2], w[3]); });
        add_command("stream", [this](const words& w) {
            for (int i = std::stoi(w[2]); i < std::stoi(w[3]); ++i)
                send(w[1] + std::to_string(i % 7), std::to_string(i), "");
        });
        add_command("await", [this](const words& w) { journal_.await(w[1], std::stoul(w[2])); });
        add_command("journal", [this](const words& w) {
            for (const auto& entry : journal_.all())
                if (entry.front() == w[1])
                    say(entry);
        });
        add_command("counts", [this](const words&) {
            const auto counts = bridge_->counts();
            say({"counts", std::to_string(counts.events_sent),
                 std::to_string(counts.events_received), std::to_string(counts.events_not_sent),
                 std::to_string(counts.events_lost), std::to_string(counts.events_refused),
                 std::to_string(counts.requests_served), std::to_string(counts.requests_expired),
                 std::to_string(counts.late_answers)});
        });
        add_command("ask", [this](const words& w) {
            options_.ask_requests.push_back({w[1], ages});
        });
        add_command("serve", [this](const words& w) {
            options_.serve_requests.push_back({w[1], mode_of(w[2])});
        });
        add_command("answer", [this](const words& w) { answer(w[1], w[2]); });
        add_command("request", [this](const words& w) { request(w[1], w[2], w[3]); });
        add_command("expect", [this](const words& w) { options_.expected_hosts.push_back(w[1]); });
        add_command("snowballs", [this](const words& w) {
            if (w[2] == "send")
                options_.send_snowballs.push_back({w[1], ages});
            else
                options_.serve_snowballs.push_back({w[1]});
        });
        add_command("add", [this](const words& w) { add(w[1], w[2]); });
        add_command("snowball", [this](const words& w) { snowball(w[1], w[2], w[3]); });
        add_command("drain", [this](const words& w) {
            options_.drain_limit = std::chrono::milliseconds(std::stoi(w[1]));
        });
        add_command("end", [this](const words&) { bridge_.reset(); });
        add_command("leave",
                    [this](const words&) { ending_ = std::jthread([this] { bridge_.reset(); }); });
        add_command("release", [this](const words&) { released_.set(); });
        add_command("load", [this](const words& w) { components_.start(w[1]); });
        add_command("unload", [this](const words& w) {
            if (const auto end = components_.stop(w[1]); !end.is_unmapped)
                throw exceptions::error(end.text());
        });
        add_command("flow", [this](const words& w) { flow(w[1]); });
    }

    int run() {
        for (std::string line; std::getline(std::cin, line);) {
            words command = nats::words_in(line);
            if (command[0] == "quit")
                break;
            command.resize(std::max<std::size_t>(command.size(), 4));
            try {
                commands_.at(command[0])(command);
                say({"ok"});
            } catch (const std::exception& failure) {
                say({"failed", failure.what()});
            }
        }
        return 0;
    }

private:
    void add_command(const std::string& name, std::function<void(const words&)> run) {
        commands_[name] = std::move(run);
    }

    std::shared_ptr<IEventRouting> events(const std::string& channel) {
        return channel.empty() ? get_event_routing(*module_)
                               : get_named_event_routing(*module_, channel);
    }

    // All but the origin, which is never the same.
    static std::string text_of(const routing_parameters& about) {
        std::string text;
        for (const auto& [name, value] : about)
            if (name != nats::parameter::origin)
                text +=
                    name + '=' + (value.number ? std::to_string(value.number) : value.text) + ' ';
        return text;
    }

    // Notes the name, the paths, the text, and the sender's name for what came over the network,
    // or all parameters for the name "heard". The many that are "seen" are kept without their
    // paths.
    void listen(const std::string& name, const std::string& pattern, const std::string& channel) {
        const auto note = [this, name](const std::string& paths, const event_data& data,
                                       const routing_parameters& about) {
            std::string scratch;
            const auto* const text = serialization::GetDataValue(data, scratch);
            if (paths == nats::lost_event)
                journal_.add({name, text_or(about, "path", ""),
                              std::to_string(number_or(about, "from", 0)),
                              std::to_string(number_or(about, "to", 0))});
            else
                journal_.add(
                    {name, name == "seen" ? "" : paths, text ? *text : "",
                     name == "heard" ? text_of(about) : text_or(about, nats::parameter::host, "")});
            return true;
        };
        handlers_.push_back(
            events(channel)->RegisterEventHandler(nullptr, pattern, note, nullptr, name));
    }

    // A careless component: what comes in goes out again as if it were its own.
    void echo(const std::string& pattern) {
        const auto again = [this](const std::string& paths, const event_data& data,
                                  const routing_parameters& about) {
            if (!about.contains(nats::parameter::origin))
                return true;
            routing_parameters own = about;
            own.erase(nats::parameter::origin);
            events("")->BroadcastEvent(paths, data, own, nullptr);
            return true;
        };
        handlers_.push_back(
            events("")->RegisterEventHandler(nullptr, pattern, again, nullptr, "echo"));
    }

    void send(const std::string& paths, const std::string& text, const std::string& channel) {
        routing_parameters about;
        about["kept"] = 5;
        for (const char* here_only :
             {parameter::synchronous, parameter::target_session, parameter::skip_request_fallbacks,
              parameter::prefer_local_request_handlers,
              parameter::suppress_not_processed_exception})
            about[here_only] = 0;
        events(channel)->BroadcastEvent(paths, serialization::make_payload(text), about, nullptr);
    }

    static nats::request_mode mode_of(const std::string& name) {
        return name == "any"      ? nats::request_mode::any
               : name == "unique" ? nats::request_mode::unique
                                  : nats::request_mode::owner;
    }

    // Notes what it is asked, and does what the second word says.
    void answer(const std::string& pattern, const std::string& what) {
        const auto handler = [this, what](const std::string& path, const request_data& data,
                                          request_answer& response, request_answer& error_response,
                                          const routing_parameters& about) {
            std::string scratch;
            const auto* const text = serialization::GetDataValue(data, scratch);
            journal_.add(
                {"asked", path, text ? *text : "", text_or(about, nats::parameter::host, "")});
            if (what == "throw")
                throw exceptions::error("no paper");
            if (what == "hold")
                released_.wait();
            if (what == "die")
                std::_Exit(1);
            if (what == "error")
                error_response = serialization::make_payload(std::string("jam"));
            response = serialization::make_payload(options_.host + " has " + (text ? *text : ""));
            return what != "decline";
        };
        handlers_.push_back(
            get_request_routing(*module_)->RegisterRequestHandler(pattern, 0, handler, what));
    }

    // Says what became of it and the answer, or the failure's text.
    void request(const std::string& path, const std::string& text, const std::string& parameter) {
        routing_parameters about;
        if (parameter == "local")
            about[event_routing::parameter::target_session] = this_session;
        else if (parameter == "skip")
            about[event_routing::parameter::skip_request_fallbacks] = 1;
        else if (!parameter.empty())
            about[nats::parameter::time_out] = std::stoi(parameter);
        request_answer response;
        request_answer error_response;
        try {
            const bool is_good = get_request_routing(*module_)->SendRequest(
                path, serialization::make_payload(text), response, error_response, about);
            std::string scratch;
            const auto* const said = serialization::GetDataValue<std::string>(response, scratch);
            say({"result", is_good ? "answered" : "error", said ? *said : ""});
        } catch (const request_was_not_processed&) {
            say({"result", "nobody", ""});
        } catch (const multiple_request_handlers& failure) {
            say({"result", "multiple", failure.what()});
        } catch (const nats::remote_handler_failed& failure) {
            say({"result", "threw",
                 failure.host() + ": " + failure.type() + ": " + failure.text()});
        } catch (const nats::request_failed& failure) {
            const char* const happened[] = {"did not run", "ran", "unknown"};
            say({"result", happened[static_cast<int>(failure.happened())], failure.what()});
        }
    }

    // A number each millisecond, until the host ends.
    void flow(const std::string& path) {
        flow_ = std::jthread([this, path](const std::stop_token& end) {
            for (int i = 0; !end.stop_requested(); ++i) {
                send(path, std::to_string(i), "");
                platform::sleep_for(platform::milliseconds(1));
            }
        });
    }

    // Adds a word and the names of the hosts that were passed by so far.
    void add(const std::string& pattern, const std::string& word) {
        const auto handler = [this, word](const std::string& path, const snowball_data&,
                                          snowball_result& response, snowball_result&,
                                          const routing_parameters& about) {
            journal_.add({"added", path, word, text_or(about, nats::parameter::passed_by, "")});
            if (word == "throw")
                throw exceptions::error("no paper");
            std::string scratch;
            const auto* const before = serialization::GetDataValue<std::string>(response, scratch);
            response = serialization::make_payload((before ? *before + " " : "") + word);
        };
        handlers_.push_back(
            get_snowball_routing(*module_)->RegisterSnowballHandler(pattern, handler, word));
    }

    void snowball(const std::string& path, const std::string& text, const std::string& time_out) {
        routing_parameters about;
        if (!time_out.empty())
            about[nats::parameter::time_out] = std::stoi(time_out);
        snowball_result response = serialization::make_payload(text);
        snowball_result error_response;
        try {
            get_snowball_routing(*module_)->SendSnowball(path, nullptr, response, error_response,
                                                         about);
            std::string scratch;
            const auto* const said = serialization::GetDataValue<std::string>(response, scratch);
            say({"result", "came back", said ? *said : ""});
        } catch (const nats::remote_handler_failed& failure) {
            say({"result", "threw", failure.text()});
        }
    }

    const std::shared_ptr<IModule> module_ = get_module();
    nats::bridge_options options_;
    journal journal_;
    std::map<std::string, std::function<void(const words&)>> commands_;
    std::vector<std::shared_ptr<tasklib::keep_registered>> handlers_;
    platform::event released_{platform::reset_mode::manual, false}; // handlers that hold
    std::unique_ptr<nats::bridge> bridge_;
    std::jthread ending_;
    component_host components_;
    std::jthread flow_;
};

} // namespace

int main(int, char** arguments) {
    return host(arguments[1], arguments[2]).run();
}
