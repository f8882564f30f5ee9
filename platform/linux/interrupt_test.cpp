#include <platform/interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

// To the process, as a terminal does it, and not to this thread.
void request(int signal) {
    kill(getpid(), signal);
}

constexpr milliseconds patience(20'000);

TEST(Interrupt, SetsAnEventAtTheFirstRequestAndGivesTheSignalBack) {
    for (const int signal : {SIGINT, SIGTERM}) {
        interrupt_watch interrupt;
        EXPECT_THROW(interrupt_watch(), std::logic_error);
        EXPECT_FALSE(interrupt.requested().wait(milliseconds(0)));
        EXPECT_FALSE(interrupt.exit_code());
        request(signal);
        EXPECT_TRUE(interrupt.requested().wait(patience));
        EXPECT_EQ(interrupt.exit_code(), 128 + signal);
    }
    sigset_t blocked{};
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_FALSE(sigismember(&blocked, SIGINT)) << "watched after its end";
}

TEST(Interrupt, EndsTheProcessAtTheSecondRequestAndLeavesIgnoredOnesIgnored) {
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGINT, SIG_IGN);
        interrupt_watch interrupt;
        request(SIGINT);
        request(SIGTERM);
        if (!interrupt.requested().wait(patience))
            _exit(1);
        if (interrupt.exit_code() != 128 + SIGTERM)
            _exit(2);
        request(SIGTERM);
        event(reset_mode::manual, false).wait(patience);
        _exit(3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "exit code " << WEXITSTATUS(status);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

} // namespace
