#include "examples/windows/word_counter.h"

#include "platform/src/watched_thread_test.h"

#include <array>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

namespace {

using namespace zel;

TEST(WordCounter, TakesAnInterruptedReadNotForTheEnd) {
    // As a debugger or a child that ends may do it; without SA_RESTART the read is cut short.
    struct sigaction interrupting {};
    interrupting.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &interrupting, nullptr), 0);
    std::array<int, 2> pipe_ends{};
    ASSERT_EQ(pipe(pipe_ends.data()), 0);
    auto [output, input] = pipe_ends;
    pthread_t reading{};
    platform::signal is_made, has_read;
    platform::watched_thread reader([&, descriptor = output] {
        reading = pthread_self();
        examples::word_counter counter;
        is_made.set();
        EXPECT_TRUE(counter.read_from(descriptor)) << "there may be more";
        has_read.set();
        EXPECT_TRUE(counter.read_from(descriptor)) << "there is more";
        EXPECT_FALSE(counter.read_from(-1)) << "cannot be read";
        EXPECT_EQ(platform::run_message_loop(), 1);
    });
    ASSERT_TRUE(is_made.comes() && reader.falls_asleep()); // in its read
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    pthread_kill(reading, SIGUSR1);
    EXPECT_TRUE(has_read.comes());
    EXPECT_EQ(write(input, "two words", 9), 9);
    reader.join();
    close(input);
    close(output);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "2 words: two words\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "The input cannot be read: Bad file descriptor\n");
}

} // namespace
