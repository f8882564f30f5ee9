#include "platform/src/watched_thread_test.h"

#include <platform/diagnostics.h>
#include <platform/process.h>

#include <gtest/gtest.h>
#include <pthread.h>

namespace {

using namespace zel::platform;

TEST(ForcedUnwinding, PassesThroughTheGuardOfForeignCode) {
    for (const bool by_exit : {true, false}) {
        bool unwound = false;
        bool went_on = false;
        watched_thread([&] {
            guarded([&] {
                const std::shared_ptr<void> at_end(nullptr, [&](void*) { unwound = true; });
                if (by_exit)
                    pthread_exit(nullptr);
                pthread_cancel(pthread_self());
                pthread_testcancel();
            });
            went_on = true;
        }).join();
        EXPECT_TRUE(unwound);
        EXPECT_FALSE(went_on);
    }
}

TEST(ForcedUnwinding, BeginsInNoWaitOfThisLayer) {
    bool waited = false;
    bool went_on = false;
    critical_section held;
    held.lock();
    watched_thread thread([&] {
        pthread_cancel(pthread_self());
        event(reset_mode::manual, false).wait(milliseconds(1));
        sleep_for(milliseconds(1));
        held.lock();
        held.unlock();
        waited = true;
        pthread_testcancel();
        went_on = true;
    });
    EXPECT_TRUE(thread.falls_asleep());
    held.unlock();
    thread.join();
    EXPECT_TRUE(waited);
    EXPECT_FALSE(went_on);
}

} // namespace
