#include <platform/process.h>
#include <platform/thread_id.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

bool numbers_are_right() {
    return zel::platform::this_thread_id() == static_cast<std::uint32_t>(gettid()) &&
           zel::platform::process_id() == static_cast<std::uint32_t>(getpid());
}

TEST(Process, KnowsItsNumbersOnEveryThreadAndAfterAFork) {
    EXPECT_TRUE(numbers_are_right());
    std::jthread([] {
        EXPECT_TRUE(numbers_are_right());
        const pid_t child = fork();
        if (child == 0)
            _exit(numbers_are_right() ? 0 : 1);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "the child has kept its parent's numbers";
        EXPECT_TRUE(numbers_are_right());
    }).join();
}

} // namespace
