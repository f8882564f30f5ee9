#include "platform/src/instruction_watch_test.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace zel::platform {

#if defined(__x86_64__)

namespace {

constexpr int mark_signal = SIGUSR1;

// What the instruction does, of which these are the first bytes.
void note(const std::array<unsigned char, 16>& bytes, watched_instructions& seen) {
    std::size_t at = 0;
    bool is_locked = false;
    for (;; ++at) {
        const unsigned char b = bytes[at];
        if (b == 0xF0)
            is_locked = true;
        else if (b != 0x66 && b != 0x67 && b != 0xF2 && b != 0xF3 && b != 0x2E && b != 0x36 &&
                 b != 0x3E && b != 0x26 && b != 0x64 && b != 0x65 && (b & 0xF0) != 0x40)
            break;
    }
    const bool is_exchange = bytes[at] == 0x86 || bytes[at] == 0x87;
    const bool has_memory = bytes[at + 1] < 0xC0;
    seen.locked += is_locked || (is_exchange && has_memory); // which locks by itself
    seen.system_calls += bytes[at] == 0x0F && bytes[at + 1] == 0x05;
}

// False when the child has ended instead.
bool stops(pid_t child, int signal) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == signal;
}

std::array<unsigned char, 16> next_instruction(pid_t child) {
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, child, nullptr, &registers);
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += sizeof(long)) {
        const long word = ptrace(PTRACE_PEEKTEXT, child, registers.rip + i, nullptr);
        std::memcpy(bytes.data() + i, &word, sizeof word);
    }
    return bytes;
}

// From one mark of a thread to its next. The other threads run on meanwhile.
bool watch(pid_t thread, watched_instructions& seen) {
    for (;;) {
        const auto bytes = next_instruction(thread);
        note(bytes, seen);
        int status = 0;
        if (ptrace(PTRACE_SINGLESTEP, thread, nullptr, nullptr) != 0 ||
            waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status))
            return false;
        if (WSTOPSIG(status) == mark_signal)
            return true;
    }
}

// Lets all threads of the child run until one of them marks the beginning; then watches that one.
bool watch_marked(watched_instructions& seen) {
    for (;;) {
        int status = 0;
        const pid_t thread = waitpid(-1, &status, __WALL);
        if (thread < 0 || !WIFSTOPPED(status))
            return false;
        if (WSTOPSIG(status) == mark_signal)
            return watch(thread, seen);
        // A thread that has made another one, or is new itself.
        ptrace(PTRACE_CONT, thread, nullptr, nullptr);
    }
}

[[noreturn]] void run_child(const std::function<void()>& program) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(1);
    raise(SIGSTOP); // until the parent follows new threads, too
    // Where there is but one thread, the standard library's counts of references are not atomic.
    std::thread([] {
        for (;;)
            pause();
    }).detach();
    program();
    for (;;)
        pause();
}

watched_instructions operator-(watched_instructions a, watched_instructions b) {
    return {a.locked - b.locked, a.system_calls - b.system_calls};
}

std::optional<watched_instructions> watch_child(const std::function<void()>& program) {
    const pid_t child = fork();
    if (child == 0)
        run_child(program);
    watched_instructions seen;
    const bool was_watched = child > 0 && stops(child, SIGSTOP) &&
                             ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACECLONE) == 0 &&
                             ptrace(PTRACE_CONT, child, nullptr, nullptr) == 0 &&
                             watch_marked(seen);
    if (child > 0) {
        kill(child, SIGKILL);
        while (waitpid(-1, nullptr, __WALL) > 0) { // its threads, too
        }
    }
    return was_watched ? std::optional(seen) : std::nullopt;
}

} // namespace

void mark_watched() {
    raise(mark_signal);
}

std::optional<watched_instructions> watch_marked(const std::function<void()>& program) {
    const auto all = watch_child(program);
    const auto of_watching = watch_child([] {
        mark_watched();
        mark_watched();
    });
    return all && of_watching ? std::optional(*all - *of_watching) : std::nullopt;
}

#else

void mark_watched() {}

std::optional<watched_instructions> watch_marked(const std::function<void()>&) {
    return std::nullopt;
}

#endif

std::optional<watched_instructions> watch_instructions(const std::function<void()>& prepare,
                                                       const std::function<void()>& watched) {
    return watch_marked([&] {
        prepare();
        mark_watched();
        watched();
        mark_watched();
    });
}

} // namespace zel::platform
