#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/diagnostics.h>
#include <platform/process.h>

#include <cmath>
#include <mutex>
#include <stdexcept>

namespace zel::event_routing::impl {
namespace {

using platform::patience;
using info = monitor::event_handling_info_2;

class Monitor : public testing::Test {
protected:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    // Notes which monitor was told of what.
    cookie watch(const std::string& name) {
        return watch([=, this](const std::string& path, const info& about) {
            std::string text = name + "<" + path + ">";
            if (about.handler_info)
                text += std::to_string(about.handler_info->first) + about.handler_info->second;
            for (const auto& [level, description] : about.handlers_info)
                text += " " + std::to_string(level) + description;
            std::lock_guard inside(guard);
            told.push_back(text);
        });
    }
    cookie watch(std::function<void(const std::string&, const info&)> monitor) {
        return events->RegisterMonitorHandler([=](const std::string& path, const auto&, const auto&,
                                                  const info& about) { monitor(path, about); });
    }
    cookie listen(const std::string& path, const std::string& description,
                  synchronous_event_part first, asynchronous_event_part second = nullptr) {
        return events->RegisterEventHandler(nullptr, path, std::move(first), std::move(second),
                                            description);
    }
    using texts = std::vector<std::string>;
    texts told_of(const std::string& paths, const routing_parameters& parameters = {}) {
        events->BroadcastEvent(paths, nullptr, parameters, nullptr);
        std::lock_guard inside(guard);
        return std::exchange(told, {});
    }

    static bool yes(const std::string&, const event_data&, const routing_parameters&) {
        return true;
    }
    static void nothing(const std::string&, const event_data&, const routing_parameters&) {}

    std::mutex guard;
    texts told;
    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
};

TEST_F(Monitor, IsToldOfEveryPartAndOfTheBroadcast) {
    const auto monitor = watch("m");
    const std::vector<cookie> handlers = {
        listen("a.*", "wild", &yes), listen("a.x", "exact", nullptr, &nothing),
        listen(
            "*", "throws", [](auto&&...) -> bool { throw std::runtime_error("contained"); },
            &nothing)};
    const test::log_capture log(log::silent);
    EXPECT_EQ(told_of("a.b;a.x", {{"synchronous", -1}}),
              (texts{"m<a.b;a.x>1Sync: wild", "m<a.b;a.x>0Sync: throws", "m<a.x>2Async: exact",
                     "m<a.b;a.x> 1wild 0throws 2exact"}));
    EXPECT_EQ(told_of(""), texts{"m<>"}) << "a broadcast without paths is one, too";

    const auto fails = listen("b", "fails", nullptr, [](auto&&...) { throw std::bad_alloc(); });
    EXPECT_EQ(told_of("b", {{"synchronous", -1}}),
              (texts{"m<b>0Sync: throws", "m<b> 1fails 0throws"}))
        << "a failed asynchronous part is none";
}

TEST_F(Monitor, NumbersAMessageThatHasNoNumberYet) {
    routing_parameters seen;
    const auto handler = listen("*", "", [&](auto&, auto&, const routing_parameters& parameters) {
        seen = parameters;
        return true;
    });
    const auto number_of = [&](const routing_parameters& parameters) {
        told_of("a", parameters);
        return seen.contains("monitoring_message_id") ? seen["monitoring_message_id"].number : 0;
    };
    EXPECT_EQ(number_of({{"x", 1}}), 0) << "nobody watches";
    const auto monitor = watch("m");
    const auto first = number_of({{"x", 1}, {"monitoring_message_pid", 3}});
    EXPECT_EQ(seen["monitoring_message_pid"].number, std::int64_t(platform::process_id()));
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(number_of({}), first + 1);
    EXPECT_EQ(number_of({{"monitoring_message_id", 77}}), 77);
    EXPECT_EQ(seen.size(), 1u) << "a forwarded message passes unchanged";
}

TEST_F(Monitor, IsToldTheTimesOrThatTheyAreUnknown) {
    std::vector<double> times;
    const auto monitor = watch([&](const std::string&, const info& about) {
        times.insert(times.end(), {about.cpu_time, about.elapsed_time});
    });
    const auto handler = listen("a", "", [](auto&&...) {
        platform::event(platform::reset_mode::manual, false).wait(platform::milliseconds(2));
        return true;
    });
    told_of("a");
    ASSERT_EQ(times.size(), 4u);
    EXPECT_GE(times[1], 0.002);
    EXPECT_GE(times[3], times[1]);
    EXPECT_TRUE(times[0] > 0 && times[2] > times[0] && times[2] < times[3]);
    times.clear();
    const platform::clock_replacement no_rate(platform::clock::performance_frequency,
                                              []() -> std::optional<std::int64_t> { return {}; });
    const platform::clock_replacement no_cycles(platform::clock::thread_cycles,
                                                []() -> std::optional<std::int64_t> { return {}; });
    told_of("a");
    EXPECT_EQ(std::count_if(times.begin(), times.end(), [](double t) { return std::isnan(t); }), 4);
}

TEST_F(Monitor, ComesAndGoesAlsoFromInside) {
    auto first = watch("1");
    const auto second = watch("2");
    const auto third = watch("3");
    EXPECT_EQ(told_of("a"), (texts{"1<a>", "2<a>", "3<a>"}));
    first.reset();
    EXPECT_EQ(told_of("a"), (texts{"3<a>", "2<a>"})) << "the last one has filled the gap";
    cookie own, late;
    own = watch([&](auto&&...) {
        own.reset();
        late = watch("late");
        events->BroadcastEvent("inner", nullptr, {}, nullptr);
    });
    EXPECT_EQ(told_of("a"), (texts{"3<a>", "2<a>", "3<inner>", "2<inner>", "late<inner>"}));
    EXPECT_EQ(told_of("a"), (texts{"3<a>", "2<a>", "late<a>"}));
    events.reset();
    late.reset(); // outlives its service
}

TEST_F(Monitor, KeepsADropOnAnotherThreadWaitingWhileItIsCalled) {
    platform::event running(platform::reset_mode::manual, false);
    platform::event go_on(platform::reset_mode::manual, false);
    std::atomic<int> calls{0};
    auto slow = watch([&](auto&&...) {
        ++calls;
        running.set();
        EXPECT_TRUE(go_on.wait(patience));
    });
    std::jthread broadcaster([&] { told_of("a"); });
    ASSERT_TRUE(running.wait(patience));
    platform::watched_thread dropper([&] { slow.reset(); });
    EXPECT_TRUE(dropper.falls_asleep());
    told_of("b"); // without it
    go_on.set();
    dropper.join();
    EXPECT_EQ(calls, 1);
}

TEST_F(Monitor, ThatThrowsEndsTheRoutingButNeverTheCaller) {
    const test::log_capture log(5);
    int reported = 0;
    const platform::exception_observer observer([&](auto&&...) { ++reported; });
    std::string calls;
    const auto note = [&](const char* name) {
        return [&calls, name](auto&&...) {
            calls += name;
            return true;
        };
    };
    const std::vector<cookie> handlers = {listen("a", "", note("first ")),
                                          listen("a", "", note("second "))};
    bool throws_int = false;
    const auto monitor = watch([&](const std::string&, const info& about) {
        calls += about.handler_info ? "part " : "broadcast ";
        if (throws_int && about.handler_info)
            throw 1;
        throw std::runtime_error("m");
    });
    told_of("a");
    EXPECT_EQ(calls, "first part broadcast ");
    EXPECT_EQ(reported, 1) << "what it throws about a broadcast is only reported";
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, " Broadcasting of 'a' event failed.\nm");
    throws_int = true;
    EXPECT_THROW(told_of("a"), int) << "no std::exception is passed on";
    EXPECT_EQ(reported, 2);
}

} // namespace
} // namespace zel::event_routing::impl
