#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/diagnostics.h>

#include <locale>
#include <thread>

namespace zel::event_routing::impl {
namespace {

constexpr std::int64_t minute = 600'000'000; // in ticks
std::atomic<std::int64_t> ticks;

class EventStatistics : public testing::Test {
protected:
    void SetUp() override {
        ticks = 100 * minute;
        events = std::make_shared<EventRoutingImpl>();
    }

    void broadcast(const std::string& paths, int times = 1) {
        for (; times > 0; --times)
            events->BroadcastEvent(paths, nullptr, {}, nullptr);
    }
    std::vector<std::string> reports() const {
        std::vector<std::string> texts;
        for (const auto& line : log.lines())
            if (line.text.starts_with("Event routing statistic (in last "))
                texts.push_back(line.text);
        return texts;
    }

    const platform::clock_replacement stopped{platform::clock::unbiased_time,
                                              [] { return std::optional(ticks.load()); }};
    const test::log_capture log{0};
    std::shared_ptr<EventRoutingImpl> events;
};

TEST_F(EventStatistics, AreReportedAtTheEndOfTheService) {
    broadcast("a", 7);
    broadcast("b", 12);
    broadcast("a;b");
    ticks += 20 * minute;
    events.reset();
    EXPECT_EQ(reports().back(), "Event routing statistic (in last 20 minutes):\n"
                                "\tTotal event count: 20\n"
                                "\tPath count: 3\n"
                                "\tTop 3 paths:\n"
                                "\t\t    12  b\n"
                                "\t\t     7  a\n"
                                "\t\t     1  a;b");
    EXPECT_EQ(log.lines().back().severity, 0);
    std::make_shared<EventRoutingImpl>().reset();
    EXPECT_TRUE(reports().back().ends_with("count: 0\n\tTop 0 paths:"));
}

TEST_F(EventStatistics, EndAPeriodWithItsThousandthBroadcastAndCountNestedOnesFirst) {
    auto outer = events->RegisterEventHandler(
        nullptr, "outer",
        [this](auto&&...) {
            broadcast("inner");
            EXPECT_EQ(reports().size(), 0u);
            return true;
        },
        nullptr, "");
    for (int i = 0; i < 6; ++i)
        broadcast("path " + std::to_string(i), 100 + i);
    broadcast("a", 999 - 615 - 1);
    EXPECT_EQ(reports().size(), 0u);
    broadcast("outer");
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_NE(reports()[0].find("count: 1000\n\tPath count: 9\n\tTop 5 paths:\n\t\t   383  a\n"
                                "\t\t   105  path 5"),
              std::string::npos);
    EXPECT_EQ(reports()[0].find("path 1"), std::string::npos);
    broadcast("a");
    outer.reset();
    events.reset();
    EXPECT_NE(reports().back().find("count: 1\n"), std::string::npos) << "counted from anew";
}

TEST_F(EventStatistics, EndAPeriodWithTheFirstBroadcastAfterAnHour) {
    ticks += 60 * minute;
    broadcast("a");
    EXPECT_EQ(reports().size(), 0u);
    ticks += 59 * minute / 60; // rounded down
    broadcast("b;b");
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_TRUE(reports()[0].starts_with("Event routing statistic (in last 60.9 minutes):\n"
                                         "\tTotal event count: 2\n"));
    broadcast("a", 998);
    ticks += 61 * minute;
    broadcast("a");
    EXPECT_EQ(reports().size(), 2u);
}

TEST_F(EventStatistics, CountEveryBroadcastOnceHoweverManyPathsThereAre) {
    constexpr int threads = 4;
    constexpr int each = 25'000; // different paths, more than are remembered
    {
        std::vector<std::jthread> broadcasters;
        for (int thread = 0; thread < threads; ++thread)
            broadcasters.emplace_back([&] {
                for (int i = 0; i < each; ++i)
                    broadcast("path " + std::to_string(i));
            });
    }
    EXPECT_EQ(reports().size(), threads * each / 1000u);
    for (const auto& text : reports())
        EXPECT_NE(text.find("Total event count: 1000\n"), std::string::npos);
    broadcast("hot", 3);
    broadcast("path 1", 2); // dropped, and refused, between its broadcasts
    events.reset();
    EXPECT_TRUE(reports().back().ends_with("Top 2 paths:\n\t\t     3  hot\n\t\t     2  path 1"));
}

TEST_F(EventStatistics, ThatCannotBeWrittenFailNoBroadcast) {
    struct failing_sink : log::ILogSink {
        void Write(const log::record&) override { throw std::runtime_error("disk full"); }
    };
    const auto failing = log::get_log_module()->AddSink(std::make_shared<failing_sink>(), 0);
    int reported = 0;
    const platform::exception_observer observer([&](auto&&...) { ++reported; });
    broadcast("a", 1000);
    EXPECT_EQ(reported, 1);
    events.reset();
    EXPECT_EQ(reported, 2);
}

} // namespace
} // namespace zel::event_routing::impl
