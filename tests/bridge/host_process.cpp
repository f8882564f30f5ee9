#include "tests/bridge/host_process.h"

#include <event_routing/nats_bridge.h>

#include <iterator>

namespace zel::event_routing::nats {

namespace {

std::string variable_set_to(const std::string& configuration) {
    std::string setting = configuration_variable;
    setting += '=';
    return setting += configuration;
}

} // namespace

std::string server_program() {
    static const std::string found = [] {
        // Debian puts it where only root looks for programs.
        for (const char* program : {"nats-server", "/usr/sbin/nats-server"}) {
            platform::piped_program asked({program, "--version"});
            if (asked.read_line() && asked.wait() == 0)
                return std::string(program);
        }
        return std::string();
    }();
    return found;
}

void server::start() {
    program_ = std::make_unique<platform::piped_program>(
        words{server_program(), "-a", "127.0.0.1", "-p", port(), "-l", "/dev/null"});
    platform::wait_for_listener(port_);
}

void server::kill() {
    program_->kill();
    program_->wait();
}

host_process::host_process(const std::string& name, const server& from)
    : name_(name), program_({BRIDGE_HOST_PROGRAM, name, from.port()}) {}

host_process::host_process(const std::string& name, const server& from,
                           const std::string& configuration)
    : name_(name),
      program_({"env", variable_set_to(configuration), BRIDGE_HOST_PROGRAM, name, from.port()}) {}

void host_process::begin(const words& command) {
    program_.write_line(line_of(command));
}

std::vector<words> host_process::answer() {
    std::vector<words> lines;
    while (const auto line = program_.read_line()) {
        words entry = words_in(*line);
        if (entry.front() == "ok")
            return lines;
        if (entry.front() == "failed") {
            ADD_FAILURE() << name_ << ": " << entry.at(1);
            return lines;
        }
        lines.push_back(std::move(entry));
    }
    ADD_FAILURE() << name_ << " has ended";
    return lines;
}

void host_process::tell_all(const std::string& commands) {
    std::istringstream all(commands);
    for (std::string command; std::getline(all, command, ';');) {
        std::istringstream in(command);
        tell({std::istream_iterator<std::string>(in), {}});
    }
}

std::vector<words> host_process::journal(const std::string& handler) {
    return tell({"journal", handler});
}

int host_process::end() {
    program_.write_line("quit");
    return program_.wait();
}

void host_process::kill() {
    program_.kill();
    program_.wait();
}

} // namespace zel::event_routing::nats
