#include "generic/tasklib/src/tasks/reg_cookie.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

namespace {

TEST(MakeRegCookie, RunsItsActionOnceWithTheLastReferenceAndLogsWhatItThrows) {
    const zel::test::log_capture log(0);
    auto cookie = zel::tasklib::make_reg_cookie([] { throw zel::exceptions::fatal("broken"); });
    auto second = cookie;
    cookie.reset();
    EXPECT_TRUE(log.lines().empty());
    second.reset();
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].module, "tasks");
    EXPECT_EQ(lines[0].severity, zel::log::severity::fatal_failure);
    EXPECT_NE(lines[0].text.find("\nbroken (thrown at "), std::string::npos) << lines[0].text;
}

} // namespace
