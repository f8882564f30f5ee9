// What the monitors of the three services are told, and when.
#include "framework/event_routing/src/event_routing/module/message_counters.h"
#include "tests/support/routing.h"

#include <platform/diagnostics.h>
#include <platform/process.h>

#include <cmath>

namespace zel::event_routing::impl {
namespace {

using info = monitor::event_handling_info_2;

class Monitor : public Routing {
protected:
    // Notes which monitor was told of what.
    cookie watch(const std::string& name) {
        return events->RegisterMonitorHandler(
            [=, this](const std::string& path, auto&, auto&, const info& about) {
                std::string text = name + "<" + path + ">";
                if (about.handler_info)
                    text += std::to_string(about.handler_info->first) + about.handler_info->second;
                for (const auto& [level, description] : about.handlers_info)
                    text += " " + std::to_string(level) + description;
                note(text);
            });
    }
    cookie watch(std::function<void(const info&)> monitor) {
        return events->RegisterMonitorHandler(
            [=](auto&, auto&, auto&, const info& about) { monitor(about); });
    }

    int reports = 0;
    const platform::exception_observer observer{[this](auto&&...) { ++reports; }};
};

TEST_F(Monitor, IsToldOfEveryPartAndOfTheBroadcast) {
    const auto monitor = watch("m");
    const auto part = [](auto&&...) { return true; };
    const cookies handlers = {
        listen("a.*", part, nullptr, "wild"), listen("a.x", nullptr, part, "exact"),
        listen(
            "*", [](auto&&...) -> bool { throw std::runtime_error("contained"); }, part, "throws"),
        listen(
            "b", nullptr, [](auto&&...) { throw std::bad_alloc(); }, "fails")};
    const test::log_capture log(2);
    EXPECT_EQ(notes_of("a.b;a.x", until_ended),
              "m<a.b;a.x>1Sync: wild m<a.b;a.x>0Sync: throws m<a.x>2Async: exact "
              "m<a.b;a.x> 1wild 0throws 2exact");
    EXPECT_EQ(notes_of(""), "m<>") << "a broadcast without paths is one, too";
    EXPECT_EQ(notes_of("b", until_ended), "m<b>0Sync: throws m<b> 1fails 0throws")
        << "a failed asynchronous part is none";
    EXPECT_TRUE(comes_true([&] {
        return log.texts().back().ends_with("failed without a caller check.\nstd::bad_alloc");
    })) << "its task is gone, and surprises no later test";
}

TEST_F(Monitor, NumbersAMessageThatHasNoNumberYet) {
    routing_parameters seen;
    const auto see = [&](auto&&... arguments) {
        seen = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
        return true;
    };
    const cookies handlers = {listen("*", see), answer("*", see), collect("*", see)};
    const std::int64_t pid = platform::process_id();
    const struct {
        std::function<void(const routing_parameters&)> send;
        std::uint32_t (*next_number)() noexcept;
        std::int64_t pid_in_place_of_3;
    } services[] = {{[&](auto& p) { broadcast("a", p); }, &next_event_message_id, pid},
                    {[&](auto& p) { ask("a", p); }, &next_request_message_id, 3},
                    {[&](auto& p) { roll("a", p); }, &next_snowball_message_id, 3}};
    const routing_parameters plain{{"x", 1}, {"monitoring_message_pid", 3}};
    cookies monitors;
    for (const bool watched : {false, true}) {
        for (const auto& service : services) {
            service.send(plain);
            const std::int64_t number = service.next_number() - 1;
            EXPECT_EQ(seen, !watched ? plain
                                     : (routing_parameters{
                                           {"x", 1},
                                           {"monitoring_message_id", number},
                                           {"monitoring_message_pid", service.pid_in_place_of_3}}));
            service.send({{"monitoring_message_id", 77}});
            EXPECT_EQ(seen, (routing_parameters{{"monitoring_message_id", 77}})) << "is forwarded";
            for (int more = 0; watched && more < 2; ++more) {
                service.send({});
                EXPECT_EQ(seen, (routing_parameters{{"monitoring_message_id", number + 2 + more},
                                                    {"monitoring_message_pid", pid}}));
            }
        }
        const auto ignore = [](auto&&...) {};
        monitors = {events->RegisterMonitorHandler(ignore),
                    requests->RegisterMonitorHandler(ignore),
                    snowballs->RegisterMonitorHandler(ignore)};
    }
}

TEST_F(Monitor, IsToldTheTimesOrThatTheyAreUnknown) {
    std::vector<double> times;
    const auto monitor = watch([&](const info& about) {
        times.insert(times.end(), {about.cpu_time, about.elapsed_time});
    });
    const auto handler = listen("a", notes(""));
    using reading = platform::clock_reading;
    using replaced = platform::clock_replacement;
    static std::int64_t looks;
    // Each look takes one second, and two of processor time.
    const replaced counter(platform::clock::performance_counter,
                           [] { return reading(1000 * ++looks); });
    const replaced cycles(platform::clock::thread_cycles, [] { return reading(40 * ++looks); });
    {
        const replaced rate(platform::clock::performance_frequency, [] { return reading(1000); });
        const replaced cycle_rate(platform::clock::thread_cycle_rate, [] { return reading(20); });
        broadcast("a");
        EXPECT_EQ(times, (std::vector<double>{2, 3, 10, 7}));
    }
    times.clear();
    const replaced no_rate(platform::clock::performance_frequency, [] { return reading(); });
    const replaced no_cycles(platform::clock::thread_cycles, [] { return reading(); });
    broadcast("a");
    EXPECT_EQ(std::count_if(times.begin(), times.end(), [](double t) { return std::isnan(t); }), 4);
}

TEST_F(Monitor, ComesAndGoesAlsoFromInside) {
    auto first = watch("1");
    const auto second = watch("2");
    const auto third = watch("3");
    EXPECT_EQ(notes_of("a"), "1<a> 2<a> 3<a>");
    first.reset();
    EXPECT_EQ(notes_of("a"), "3<a> 2<a>") << "the last one has filled the gap";
    cookie own, late;
    own = watch([&](auto&&...) {
        own.reset();
        late = watch("late");
        broadcast("inner");
    });
    EXPECT_EQ(notes_of("a"), "3<a> 2<a> 3<inner> 2<inner> late<inner>");
    EXPECT_EQ(notes_of("a"), "3<a> 2<a> late<a>");
    events.reset();
    late.reset(); // outlives its service
}

TEST_F(Monitor, ThatThrowsEndsTheRoutingButNeverTheCaller) {
    const test::log_capture log(5);
    const cookies handlers = {listen("a", notes("first")), listen("a", notes("second"))};
    bool throws_int = false;
    const auto monitor = watch([&](const info& about) {
        note(about.handler_info ? "part" : "broadcast");
        if (throws_int && about.handler_info)
            throw 1;
        throw std::runtime_error("m");
    });
    EXPECT_EQ(notes_of("a"), "first<a> part broadcast");
    EXPECT_EQ(reports, 1) << "what it throws about a broadcast is only reported";
    EXPECT_EQ(log.texts(), texts{"5  Broadcasting of 'a' event failed.\nm"});
    throws_int = true;
    EXPECT_THROW(broadcast("a"), int) << "no std::exception is passed on";
    EXPECT_EQ(reports, 2);
}

// request_model_test.cpp has what the monitors of requests are told.
TEST_F(Monitor, IsToldOfASnowballThatHasEndedWithOrWithoutFailure) {
    data = serialization::make_payload(1);
    double longest = 0;
    const auto text = [&](const monitor::handler_record& record) {
        EXPECT_TRUE(record.elapsed_time <= longest && record.cpu_time >= 0);
        return std::to_string(record.level) + record.description;
    };
    const cookies held = {
        snowballs->RegisterMonitorHandler([&](const std::string& path, auto& d, auto& r, auto& e,
                                              auto& parameters, auto& about, auto error) {
            EXPECT_TRUE(path == "a.b" && d == data && r == response && e == error_response);
            EXPECT_TRUE(parameters.contains("monitoring_message_id"));
            longest = about.elapsed_time;
            for (const auto& called : about.called_handlers)
                note(text(called));
            if (about.current_handler)
                note("in " + text(*about.current_handler));
            note(error ? exceptions::brief_text(error) : "well");
            throw std::runtime_error("stays here");
        }),
        collect(
            "a.b", [](auto&&...) {}, "first"),
        collect(
            "*",
            [](auto&, auto&, auto& r, auto& e, auto& parameters) {
                r = e = serialization::make_payload(2);
                if (parameters.contains("fail"))
                    throw std::runtime_error("failed");
            },
            "second")};
    roll("a.b");
    EXPECT_EQ(taken_notes(), "2first 0second well");
    EXPECT_THROW(roll("a.b", {{"fail", 1}}), std::runtime_error);
    EXPECT_EQ(taken_notes(), "2first in 0second failed");
    EXPECT_EQ(reports, 2);
}

} // namespace
} // namespace zel::event_routing::impl
