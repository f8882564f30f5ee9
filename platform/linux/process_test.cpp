#include <platform/process.h>

#include "platform/src/watched_thread_test.h"

#include <platform/diagnostics.h>

#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <string>
#include <unistd.h>

namespace {

using namespace zel::platform;

TEST(Process, KnowsItsNumbersAfterAFork) {
    EXPECT_TRUE(holds_in_a_child([] {
        return process_id() == this_thread_id() && static_cast<pid_t>(process_id()) == getpid();
    })) << "the child has kept its parent's numbers";
}

TEST(Process, CancelsAThreadInNoWaitOfThisLayerAndUnwindsItThroughTheGuard) {
    std::string log;
    watched_thread([&] {
        pthread_cancel(pthread_self());
        event(reset_mode::manual, false).wait(milliseconds(1));
        sleep_for(milliseconds(1));
        log += "waited";
        guarded(&pthread_testcancel);
        log += ", went on";
    }).join();
    EXPECT_EQ(log, "waited");
}

TEST(RaiseException, TellsObserversThatThrowComeGoAndRaiseFromInsideACall) {
    std::string told;
    std::optional<exception_observer> leaving;
    std::optional<exception_observer> coming;
    const exception_observer throwing([](auto...) { throw 5; });
    leaving.emplace([&, kept = std::string("left ")](auto...) {
        leaving.reset();
        coming.emplace([&](auto...) { told += "came "; });
        raise_exception(diagnostic::text_report, {});
        told += kept;
    });
    raise_exception(diagnostic::text_report, {});
    EXPECT_EQ(told, "came left ");
}

} // namespace
