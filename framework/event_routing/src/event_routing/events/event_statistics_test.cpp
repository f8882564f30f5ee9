#include "tests/support/routing.h"
#include "tests/support/scarce_memory.h"

#include <platform/diagnostics.h>

namespace zel::event_routing::impl {
namespace {

constexpr std::int64_t minute = 600'000'000; // in ticks

class EventStatistics : protected stopped_clock, public Routing {
protected:
    void repeat(const std::string& paths, int times) {
        for (; times > 0; --times)
            broadcast(paths);
    }
    texts reports() const {
        texts all;
        for (const auto& text : log.texts())
            if (text.starts_with("0 Event routing statistic (in last "))
                all.push_back(text);
        return all;
    }

    const test::log_capture log{0};
};

TEST_F(EventStatistics, AreReportedAtTheEndOfTheService) {
    repeat("a", 7);
    repeat("b", 12);
    broadcast("a;b");
    ticks += 20 * minute;
    events.reset();
    EXPECT_EQ(reports().back(), "0 Event routing statistic (in last 20 minutes):\n"
                                "\tTotal event count: 20\n"
                                "\tPath count: 3\n"
                                "\tTop 3 paths:\n"
                                "\t\t    12  b\n"
                                "\t\t     7  a\n"
                                "\t\t     1  a;b");
    std::make_shared<EventRoutingImpl>().reset();
    EXPECT_TRUE(reports().back().ends_with("count: 0\n\tTop 0 paths:"));
}

TEST_F(EventStatistics, PreferTheEarlierOfPathsThatWereBroadcastAsOften) {
    for (const char* const path : {"g", "c", "a", "f", "e", "b", "d", "g"})
        broadcast(path);
    events.reset();
    EXPECT_TRUE(reports().back().ends_with("Top 5 paths:\n\t\t     2  g\n\t\t     1  a\n\t\t     "
                                           "1  b\n\t\t     1  c\n\t\t     1  d"));
}

TEST_F(EventStatistics, EndAPeriodWithItsThousandthBroadcastAndCountNestedOnesFirst) {
    auto outer = listen("outer", [this](auto&&...) {
        broadcast("inner");
        EXPECT_EQ(reports().size(), 0u);
        return true;
    });
    for (int i = 0; i < 6; ++i)
        repeat("path " + std::to_string(i), 100 + i);
    repeat("a", 999 - 615 - 1);
    EXPECT_EQ(reports().size(), 0u);
    broadcast("outer");
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_TRUE(reports()[0].ends_with("count: 1000\n\tPath count: 9\n\tTop 5 paths:\n\t\t   383  a"
                                       "\n\t\t   105  path 5\n\t\t   104  path 4\n\t\t   103  path "
                                       "3\n\t\t   102  path 2"));
    broadcast("a");
    outer.reset();
    events.reset();
    EXPECT_NE(reports().back().find("count: 1\n"), std::string::npos) << "counted from anew";
}

TEST(EventStatisticsPeriod, EndsAnHourAfterItsStartAlsoWhereTheClockGoesOnBetweenTwoLooks) {
    const platform::clock_replacement hasty(platform::clock::unbiased_time, [] {
        return platform::clock_reading(stopped_clock::ticks += 7 * minute);
    });
    const statistics_data_t period;
    EXPECT_EQ(period.deadline - period.start, std::chrono::hours(1));
}

TEST_F(EventStatistics, EndAPeriodWithTheFirstBroadcastAfterAnHour) {
    ticks += 60 * minute;
    broadcast("a");
    EXPECT_EQ(reports().size(), 0u);
    ticks += 59 * minute / 60; // rounded down
    broadcast("b;b");
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_TRUE(reports()[0].starts_with("0 Event routing statistic (in last 60.9 minutes):\n"
                                         "\tTotal event count: 2\n"));
    repeat("a", 998);
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
    repeat("hot", 3);
    repeat("path 1", 2); // dropped, and refused, between its broadcasts
    events.reset();
    EXPECT_TRUE(reports().back().ends_with("Top 2 paths:\n\t\t     3  hot\n\t\t     2  path 1"));
}

// Threads count by themselves, and others end the period while they are at it.
TEST_F(EventStatistics, AddUpToTheirTotalsWhileThreadsComeAndGo) {
    constexpr int generations = 60;
    int expected = 0;
    for (int generation = 0; generation < generations; ++generation) {
        std::vector<std::jthread> broadcasters;
        for (int thread = 0; thread < 4; ++thread) {
            const int each = 1 + (generation * 37 + thread * 101) % 700;
            expected += each;
            broadcasters.emplace_back([this, each, thread] {
                for (int i = 0; i < each; ++i)
                    broadcast("path " + std::to_string((i + thread) % 5));
            });
        }
    }
    events.reset();
    int total = 0;
    for (const auto& text : reports()) {
        std::istringstream words(text.substr(text.find("count: ") + 7));
        int in_period = 0, counted = 0;
        words >> in_period;
        words.str(text.substr(text.find("paths:") + 6));
        words.clear();
        for (int count = 0, number = 0; words >> count >> std::ws; counted += count) {
            std::string path;
            words >> path >> number;
        }
        EXPECT_EQ(counted, in_period) << text;
        total += in_period;
    }
    EXPECT_EQ(total, expected);
}

TEST(EventStatisticsPeriod, TakesMemoryForItsDifferentTextsOnly) {
    const std::string two[] = {std::string(7'000, 'a'), std::string(7'000, 'b')};
    const std::string long_text(1'000'000, 'c');
    statistics_data_t period;
    for (int i = 0; i < 500; ++i)
        for (const auto& text : two)
            period.add_paths(text, 2);
    EXPECT_LE(period.texts.size(), 262'144u);
    for (int i = 0; i < 40; ++i) {
        period.add_paths(long_text, 1);
        period.add_paths(long_text, 2);
        period.add_paths(two[i % 2], 1);
    }
    EXPECT_LE(period.texts.size(), 3 * long_text.size());
    const std::map<std::string_view, std::uint32_t> sums = {
        {two[0], 1020}, {two[1], 1020}, {long_text, 120}};
    EXPECT_EQ(period.sums(), sums);
}

// Of which no thread has room for one.
TEST_F(EventStatistics, CountVeryLongTextsAlsoWhileMemoryIsShort) {
    const std::string long_text(20'000, 'x');
    repeat(long_text, 2);
    repeat("a", 3);
    repeat(long_text, 4);
    events.reset();
    EXPECT_TRUE(reports().back().ends_with(
        "count: 9\n\tPath count: 2\n\tTop 2 paths:\n\t\t     6  " + long_text + "\n\t\t     3  a"));
    events = std::make_shared<EventRoutingImpl>();
    const int failures = test::failures_of([&] { broadcast(long_text); }, test::shortage::lasting);
    EXPECT_GT(failures, 0);
    events.reset();
    EXPECT_NE(reports().back().find("count: " + std::to_string(failures + 1) + "\n"),
              std::string::npos);
}

TEST_F(EventStatistics, ThatCannotBeWrittenFailNoBroadcast) {
    struct failing_sink : log::ILogSink {
        void Write(const log::record&) override { throw std::runtime_error("disk full"); }
    };
    const auto failing = log::get_log_module()->AddSink(std::make_shared<failing_sink>(), 0);
    int reported = 0;
    const platform::exception_observer observer([&](auto&&...) { ++reported; });
    repeat("a", 1000);
    EXPECT_EQ(reported, 1);
    events.reset();
    EXPECT_EQ(reported, 2);
}

} // namespace
} // namespace zel::event_routing::impl
