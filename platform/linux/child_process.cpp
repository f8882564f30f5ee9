#include <platform/child_process.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace zel::platform {

namespace {

void require(int error, const char* operation) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), operation);
}

class descriptor {
public:
    explicit descriptor(int number) : number_(number) {
        require(number < 0 ? errno : 0, "making a descriptor");
    }
    ~descriptor() { close(number_); }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    int number() const noexcept { return number_; }

private:
    int number_;
};

// The input is a file and not a pipe: the program may read it when and as far as it likes,
// and this thread need not write while the program reads.
void fill(const descriptor& file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file.number(), text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        require(written < 0 ? errno : 0, "writing a program's input");
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    require(lseek(file.number(), 0, SEEK_SET) < 0 ? errno : 0, "writing a program's input");
}

std::string read_all(const descriptor& source) {
    std::string all;
    std::array<char, 65536> piece;
    for (;;) {
        const ssize_t count = read(source.number(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        require(count < 0 ? errno : 0, "reading a program's output");
        if (count == 0)
            return all;
        all.append(piece.data(), static_cast<std::size_t>(count));
    }
}

struct file_actions {
    posix_spawn_file_actions_t value;
    file_actions() { require(posix_spawn_file_actions_init(&value), "starting a program"); }
    ~file_actions() { posix_spawn_file_actions_destroy(&value); }
    file_actions(const file_actions&) = delete;
    file_actions& operator=(const file_actions&) = delete;
};

// A program that was started. It is waited for however the reading of its output ends; once
// nobody reads what it writes, it ends by itself.
class child {
public:
    explicit child(pid_t process) : process_(process) {}
    ~child() { wait(); }
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    int wait() noexcept {
        int status = 0;
        while (process_ > 0 && waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = 0;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    pid_t process_;
};

pid_t start(const std::string& program, std::span<const std::string> arguments,
            const descriptor& input, const descriptor& output) {
    file_actions actions;
    require(posix_spawn_file_actions_adddup2(&actions.value, input.number(), STDIN_FILENO),
            "starting a program");
    require(posix_spawn_file_actions_adddup2(&actions.value, output.number(), STDOUT_FILENO),
            "starting a program");
    std::vector<char*> texts{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments)
        texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    pid_t process = 0;
    require(posix_spawnp(&process, program.c_str(), &actions.value, nullptr, texts.data(), environ),
            program.c_str());
    return process;
}

} // namespace

program_result run_program(const std::string& program, std::span<const std::string> arguments,
                           std::string_view input) {
    const descriptor text(memfd_create("input", MFD_CLOEXEC));
    fill(text, input);
    std::array<int, 2> ends{};
    require(pipe2(ends.data(), O_CLOEXEC) < 0 ? errno : 0, "making a pipe");
    // Declared before the reading end, so that a program that still writes when reading
    // fails finds nobody there and ends before it is waited for.
    std::optional<child> running;
    const descriptor reading(ends[0]);
    {
        const descriptor writing(ends[1]);
        running.emplace(start(program, arguments, text, writing));
    }
    std::string printed = read_all(reading);
    return {std::move(printed), running->wait()};
}

} // namespace zel::platform
