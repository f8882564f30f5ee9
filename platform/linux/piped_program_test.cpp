#include "platform/src/piped_program_test.h"

#include <platform/process.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <random>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace zel::platform {

namespace {

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
    // Below those that the system gives to outgoing connections.
    std::random_device random;
    for (;;) {
        const auto port = static_cast<std::uint16_t>(10'000 + random() % 20'000);
        const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        const bool is_free =
            bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        close(made);
        if (is_free)
            return port;
    }
}

void wait_for_listener(std::uint16_t port) {
    for (;; sleep_for(milliseconds(5))) {
        const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        const bool answers =
            connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        close(made);
        if (answers)
            return;
    }
}

piped_program::piped_program(std::vector<std::string> command) {
    std::array<int, 2> to{};
    std::array<int, 2> from{};
    require(pipe2(to.data(), O_CLOEXEC) == 0 && pipe2(from.data(), O_CLOEXEC) == 0, "a pipe");
    std::vector<char*> texts;
    for (auto& text : command)
        texts.push_back(text.data());
    texts.push_back(nullptr);
    const pid_t parent = getpid();
    process_ = fork();
    require(process_ >= 0, "a process");
    if (process_ == 0) {
        // A test that is killed has no time to end what it has started. Had it gone before this
        // call, nothing would come.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent && dup2(to[0], STDIN_FILENO) >= 0 &&
            dup2(from[1], STDOUT_FILENO) >= 0)
            execvp(texts[0], texts.data());
        _exit(127);
    }
    close(to[0]);
    close(from[1]);
    input_ = to[1];
    output_ = from[0];
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

std::optional<std::string> piped_program::read_line() {
    for (;;) {
        if (const auto line_end = read_.find('\n'); line_end != read_.npos) {
            std::string line = read_.substr(0, line_end);
            read_.erase(0, line_end + 1);
            return line;
        }
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
