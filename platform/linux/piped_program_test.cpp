#include "platform/src/piped_program_test.h"

#include <platform/process.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace zel::platform {

namespace {

using clock = std::chrono::steady_clock;

void require(bool holds, const char* operation) {
    if (!holds)
        throw std::system_error(errno, std::generic_category(), operation);
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

std::uint16_t free_port() {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    require(bind(made, any, size) == 0 && getsockname(made, any, &size) == 0, "finding a port");
    close(made);
    return ntohs(address.sin_port);
}

bool is_listened_to(std::uint16_t port, milliseconds limit) {
    for (const auto end = clock::now() + limit; clock::now() < end; sleep_for(milliseconds(5))) {
        const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        const bool answers =
            connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        close(made);
        if (answers)
            return true;
    }
    return false;
}

piped_program::piped_program(std::vector<std::string> command) {
    std::array<int, 2> to{};
    std::array<int, 2> from{};
    require(pipe2(to.data(), O_CLOEXEC) == 0 && pipe2(from.data(), O_CLOEXEC) == 0, "a pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from[1], STDOUT_FILENO);
    std::vector<char*> texts;
    for (auto& text : command)
        texts.push_back(text.data());
    texts.push_back(nullptr);
    errno = posix_spawnp(&process_, texts[0], &actions, nullptr, texts.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(to[0]);
    close(from[1]);
    input_ = to[1];
    output_ = from[0];
    require(errno == 0, command[0].c_str());
}

piped_program::~piped_program() {
    kill();
    wait();
    close(input_);
    close(output_);
}

void piped_program::write_line(const std::string& line) {
    const std::string text = line + '\n';
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(input_, text.data() + done, text.size() - done);
        require(count > 0, "writing to a program");
        done += static_cast<std::size_t>(count);
    }
}

std::optional<std::string> piped_program::read_line(milliseconds limit) {
    const auto end = clock::now() + limit;
    for (;;) {
        if (const auto line_end = read_.find('\n'); line_end != read_.npos) {
            std::string line = read_.substr(0, line_end);
            read_.erase(0, line_end + 1);
            return line;
        }
        const auto left = std::chrono::ceil<milliseconds>(end - clock::now()).count();
        pollfd source{output_, POLLIN, 0};
        if (left <= 0 || poll(&source, 1, static_cast<int>(left)) <= 0)
            return std::nullopt;
        std::array<char, 65536> piece;
        const ssize_t count = read(output_, piece.data(), piece.size());
        if (count <= 0)
            return std::nullopt;
        read_.append(piece.data(), static_cast<std::size_t>(count));
    }
}

void piped_program::signal(int number) {
    if (process_ > 0)
        ::kill(process_, number);
}

void piped_program::kill() {
    signal(SIGKILL);
}

void piped_program::suspend() {
    signal(SIGSTOP);
    int status = 0; // until all its threads have stopped
    while (waitpid(process_, &status, WUNTRACED) < 0 && errno == EINTR) {
    }
}

void piped_program::resume() {
    signal(SIGCONT);
}

int piped_program::wait() {
    int status = 0;
    while (process_ > 0 && waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace zel::platform
