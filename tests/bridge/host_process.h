// A server and hosts as processes, for tests of the bridge.
#pragma once

#include "platform/src/piped_program_test.h"
#include "tests/bridge/lines.h"

#include <gtest/gtest.h>
#include <memory>

namespace zel::event_routing::nats {

/// Ends the test where the server is not installed.
#define REQUIRE_NATS_SERVER()                                                                      \
    if (server_program().empty())                                                                  \
    GTEST_SKIP() << "nats-server is not installed (Debian: nats-server)"

/// Empty when there is none.
std::string server_program();

class server {
public:
    server() : port_(platform::free_port()) {}

    void start();
    void kill();
    void suspend() { program_->suspend(); }
    void resume() { program_->resume(); }
    std::string port() const { return std::to_string(port_); }

private:
    std::uint16_t port_;
    std::unique_ptr<platform::piped_program> program_;
};

/// bridge_host.cpp says what a host can be told.
class host_process {
public:
    host_process(const std::string& name, const server& from);
    /// With a configuration for the bridge that it loads as a component.
    host_process(const std::string& name, const server& from, const std::string& configuration);

    /// Gives a command; its answer is still to come.
    void begin(const words& command);
    /// The lines before "ok"; a failure fails the test.
    std::vector<words> answer();
    std::vector<words> tell(const words& command) {
        begin(command);
        return answer();
    }

    /// Commands of plain words, with ';' between them.
    void tell_all(const std::string& commands);
    /// Starts its bridge and waits until that is ready.
    void start() { tell_all("start;ready"); }
    /// A figure of its bridge's counts, by its place in the line.
    std::size_t count(std::size_t place) { return std::stoul(tell({"counts"}).at(0).at(place)); }
    /// What its handler of that name was given so far.
    std::vector<words> journal(const std::string& handler);

    /// Ends it in the ordinary way and returns its exit code.
    int end();
    void kill();
    platform::piped_program& program() { return program_; }

private:
    std::string name_;
    platform::piped_program program_;
};

} // namespace zel::event_routing::nats
