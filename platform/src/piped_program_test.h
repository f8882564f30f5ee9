// Programs that a test talks to by lines while they run, and what it does to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zel::platform {

/// A port of the loopback interface that nobody listens to at the moment. The system gives it to no
/// connection, so it is still free when a server that was there comes back.
std::uint16_t free_port();

/// Waits until somebody takes connections there.
void wait_for_listener(std::uint16_t port);

/// Ends with the thread that has made it, even if that is killed. No operation has a time limit.
class piped_program {
public:
    /// Looked for where the system looks; where there is none it ends with 127. Throws
    /// std::system_error.
    explicit piped_program(std::vector<std::string> command);
    /// Kills it if it still runs.
    ~piped_program();
    piped_program(const piped_program&) = delete;
    piped_program& operator=(const piped_program&) = delete;

    void write_line(const std::string& line);
    /// Nothing when the program has closed its output.
    std::optional<std::string> read_line();

    void kill();
    void suspend();
    void resume();
    /// Its exit code, or 128 and the number of the signal that ended it.
    int wait();

private:
    void signal(int number);

    int process_ = 0;
    int input_ = -1;
    int output_ = -1;
    std::string read_;
};

} // namespace zel::platform
