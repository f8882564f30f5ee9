#include "generic/tasklib/src/tasks/reg_cookie.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

using zel::tasklib::make_reg_cookie;

TEST(MakeRegCookie, RunsItsActionOnceWhenTheLastReferenceGoes) {
    int runs = 0;
    const auto captured = std::make_shared<int>();
    auto cookie = make_reg_cookie([&runs, captured] { ++runs; });
    auto second = cookie;
    cookie.reset();
    EXPECT_EQ(runs, 0);
    std::jthread([&] { second.reset(); }).join();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(MakeRegCookie, LogsWhatItsActionThrows) {
    const auto expect_logged = [](std::function<void()> action, int severity, auto failure) {
        const zel::test::log_capture log(0);
        make_reg_cookie(std::move(action));
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].module, "tasks");
        EXPECT_EQ(lines[0].number, 10);
        EXPECT_EQ(lines[0].severity, severity);
        EXPECT_NE(lines[0].text.find(failure), std::string::npos) << lines[0].text;
    };
    expect_logged([] { throw std::runtime_error("gone"); }, 7, "\ngone");
    expect_logged([] { throw 5; }, 7, "\nException: Unknown");
    expect_logged([] { throw zel::exceptions::fatal("broken"); }, 8, "\nbroken (thrown at ");
}

} // namespace
