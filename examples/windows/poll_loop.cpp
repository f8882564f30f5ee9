// Messages of windows beside other sources in a loop around poll(): counts the words
// of the lines at standard input.
#include "examples/windows/word_counter.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <poll.h>

int main() {
    using namespace zel;
    examples::word_counter counter;
    std::array<pollfd, 2> sources{{{platform::message_descriptor(), POLLIN, 0}, {0, POLLIN, 0}}};
    auto& [messages, input] = sources;
    for (;;) {
        if (poll(sources.data(), sources.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            std::perror("poll");
            return 1;
        }
        if (input.revents != 0 && !counter.read_from(input.fd))
            input.fd = -1; // poll passes over it
        if (messages.revents != 0)
            if (const auto exit_code = platform::dispatch_messages())
                return *exit_code;
    }
}
