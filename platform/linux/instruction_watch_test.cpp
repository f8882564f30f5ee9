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

// From one stop of the child to the next.
bool watch(pid_t child, watched_instructions& seen) {
    for (;;) {
        note(next_instruction(child), seen);
        int status = 0;
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0 ||
            waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
            return false;
        if (WSTOPSIG(status) == SIGUSR1)
            return true;
    }
}

[[noreturn]] void run_child(const std::function<void()>& prepare,
                            const std::function<void()>& watched) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(1);
    // Where there is but one thread, the standard library's counts of references are not atomic.
    std::thread([] {
        for (;;)
            pause();
    }).detach();
    prepare();
    raise(SIGUSR1);
    watched();
    raise(SIGUSR1);
    _exit(0);
}

watched_instructions operator-(watched_instructions a, watched_instructions b) {
    return {a.locked - b.locked, a.system_calls - b.system_calls};
}

std::optional<watched_instructions> watch_child(const std::function<void()>& prepare,
                                                const std::function<void()>& watched) {
    const pid_t child = fork();
    if (child == 0)
        run_child(prepare, watched);
    watched_instructions seen;
    const bool was_watched = child > 0 && stops(child, SIGUSR1) && watch(child, seen);
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return was_watched ? std::optional(seen) : std::nullopt;
}

} // namespace

std::optional<watched_instructions> watch_instructions(const std::function<void()>& prepare,
                                                       const std::function<void()>& watched) {
    const auto all = watch_child(prepare, watched);
    const auto of_watching = watch_child(prepare, [] {});
    return all && of_watching ? std::optional(*all - *of_watching) : std::nullopt;
}

#else

std::optional<watched_instructions> watch_instructions(const std::function<void()>&,
                                                       const std::function<void()>&) {
    return std::nullopt;
}

#endif

} // namespace zel::platform
