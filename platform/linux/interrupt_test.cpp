#include <platform/interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

constexpr milliseconds patience(20'000);

TEST(Interrupt, SetsAnEventAtTheFirstRequestAndGivesTheSignalBack) {
    for (const int signal : {SIGINT, SIGTERM}) {
        interrupt_watch interrupt;
        EXPECT_THROW(interrupt_watch(), std::logic_error);
        EXPECT_FALSE(interrupt.requested().wait(milliseconds(0)));
        EXPECT_FALSE(interrupt.exit_code());
        std::raise(signal);
        EXPECT_TRUE(interrupt.requested().wait(patience));
        EXPECT_EQ(interrupt.exit_code(), 128 + signal);
    }
    EXPECT_EQ(std::signal(SIGINT, SIG_DFL), SIG_DFL) << "installed after its end";
}

TEST(Interrupt, EndsTheProcessAtTheSecondRequestAndLeavesIgnoredOnesIgnored) {
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGINT, SIG_IGN);
        interrupt_watch interrupt;
        std::raise(SIGINT);
        if (interrupt.exit_code())
            _exit(1);
        std::raise(SIGTERM);
        if (!interrupt.requested().wait(patience))
            _exit(2);
        std::raise(SIGTERM);
        _exit(3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "exit code " << WEXITSTATUS(status);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

} // namespace
