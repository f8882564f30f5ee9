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
    const auto line = log.lines().at(0);
    EXPECT_EQ(line.severity, zel::log::severity::fatal_failure);
    EXPECT_NE(line.text.find("\nbroken (thrown at 0x"), std::string::npos) << line.text;
}

} // namespace
