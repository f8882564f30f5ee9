#include "platform/linux/io_priority.h"
#include "platform/src/watched_thread_test.h"

#include <platform/thread_priority.h>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

TEST(ThreadPriority, IsLoweredFreelyAndRaisedToNormalWhereTheSystemAllows) {
    EXPECT_FALSE(thread_priority(no_thread) || set_thread_priority(no_thread, -1) ||
                 raise_to_normal_priority(no_thread) || set_thread_priority(0, -1));
    watched_thread([] {
        const thread_id self = this_thread_id();
        for (const auto kind : {io_priority::best_effort, io_priority::idle}) {
            syscall(SYS_ioprio_set, io_priority::of_one_thread, 0, io_priority::value_of(kind, 7));
            EXPECT_TRUE(raise_to_normal_priority(self));
            EXPECT_EQ(syscall(SYS_ioprio_get, io_priority::of_one_thread, 0), 0);
        }
        EXPECT_TRUE(set_thread_priority(self, -7));
        EXPECT_EQ(thread_priority(self), -7);
        const bool raised = raise_to_normal_priority(self);
        EXPECT_EQ(thread_priority(self), raised ? 0 : -7);
        if (!set_thread_priority(self, 1))
            GTEST_SKIP() << "no right to raise a priority";
        EXPECT_TRUE(raised && raise_to_normal_priority(self));
        EXPECT_EQ(thread_priority(self), 1) << "an urgent thread is left alone";
    }).join();
}

} // namespace
