#include "platform/src/watched_thread_test.h"

#include <platform/thread_priority.h>
#include <platform/thread_statistics.h>

#include <gtest/gtest.h>
#include <linux/ioprio.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

TEST(ThreadPriority, IsLoweredFreelyAndRaisedToNormalWhereTheSystemAllows) {
    EXPECT_FALSE(thread_priority(no_thread) || set_thread_priority(no_thread, -1) ||
                 raise_to_normal_priority(no_thread) || set_thread_priority(0, -1));
    watched_thread([] {
        const thread_id self = this_thread_id();
        for (const auto kind : {IOPRIO_CLASS_BE, IOPRIO_CLASS_IDLE}) {
            syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(kind, 7));
            EXPECT_TRUE(raise_to_normal_priority(self));
            EXPECT_EQ(syscall(SYS_ioprio_get, IOPRIO_WHO_PROCESS, 0), 0);
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

TEST(ThreadStatistics, CountProcessorTimeAndWaits) {
    const auto before = read_thread_statistics().value();
    auto now = before;
    while (now.user_time + now.kernel_time < before.user_time + before.kernel_time + 200'000)
        now = read_thread_statistics().value();
    event(reset_mode::manual, false).wait(milliseconds(1));
    EXPECT_GT(read_thread_statistics().value().voluntary_switches, now.voluntary_switches);
}

} // namespace
