#include <platform/process.h>

#include "platform/src/watched_thread_test.h"

#include <platform/child_process.h>
#include <platform/diagnostics.h>
#include <platform/interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using namespace zel::platform;
using texts = std::vector<std::string>;

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

TEST(RunProgram, GivesInputAndArgumentsAsTheyAreAndTellsHowItEnded) {
    const std::string large(300'000, 'x'); // more than a pipe takes at once, both ways
    EXPECT_EQ(run_program("cat", {}, large).output, large);
    EXPECT_EQ(run_program("true", {}, large).output, "") << "a program that does not read";
    const texts odd{"[%s]", "a b; $(echo c) *\n"};
    EXPECT_EQ(run_program("printf", odd, "").output, "[a b; $(echo c) *\n]");
    EXPECT_EQ(run_program("sh", texts{"-c", "exit 7"}, "").exit_code, 7);
    EXPECT_EQ(run_program("sh", texts{"-c", "kill -TERM $$"}, "").exit_code, 128 + 15);
    // By its path: in PATH there may be folders that this user may not look into.
    EXPECT_THROW(run_program("/no_such_program", {}, ""), std::system_error);
}

// To the process, as a terminal does it, and not to this thread.
void request(int signal) {
    kill(getpid(), signal);
}

TEST(Interrupt, TellsOfTheFirstRequestButIgnoredOnesAndEndsTheProcessAtTheSecond) {
    const auto request_twice = [] {
        std::signal(SIGINT, SIG_IGN);
        interrupt_watch interrupt;
        sigset_t taken{};
        pthread_sigmask(SIG_BLOCK, nullptr, &taken);
        request(SIGTERM);
        if (!sigismember(&taken, SIGINT) && interrupt.requested().wait(patience) &&
            interrupt.exit_code() == 128 + SIGTERM)
            request(SIGTERM);
        event(reset_mode::manual, false).wait(patience);
    };
    EXPECT_EXIT(request_twice(), testing::KilledBySignal(SIGTERM), "");
}

} // namespace
