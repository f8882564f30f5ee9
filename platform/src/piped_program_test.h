// Programs that a test talks to by lines while they run, and what it does to them.
#pragma once

#include <platform/timeout.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zel::platform {

/// A port of the loopback interface that nobody listens to at the moment.
std::uint16_t free_port();

/// Whether somebody takes connections there within that time.
bool is_listened_to(std::uint16_t port, milliseconds limit);

class piped_program {
public:
    /// Looked for where the system looks. Throws std::system_error.
    explicit piped_program(std::vector<std::string> command);
    /// Kills it if it still runs.
    ~piped_program();
    piped_program(const piped_program&) = delete;
    piped_program& operator=(const piped_program&) = delete;

    void write_line(const std::string& line);
    /// Nothing when the program has closed its output or the time is over.
    std::optional<std::string> read_line(milliseconds limit);

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
