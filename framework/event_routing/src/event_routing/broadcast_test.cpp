#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "framework/exceptions/exceptions.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/diagnostics.h>
#include <tasklib/keep_registered.h>

#include <stdexcept>
#include <thread>

namespace zel::event_routing::impl {
namespace {

using cookie = std::shared_ptr<tasklib::keep_registered>;

class Broadcast : public testing::Test {
protected:
    // The handler notes its description and the path it was given.
    cookie listen(const std::string& path, const std::string& description, bool result = true) {
        return listen(path, description, [=, this](const std::string& given) {
            calls += description + "<" + given + "> ";
            return result;
        });
    }
    cookie listen(const std::string& path, const std::string& description,
                  std::function<bool(const std::string&)> handler) {
        return events->RegisterEventHandler(
            nullptr, path,
            [=, this](const std::string& given, const auto& data, const auto& map) {
                EXPECT_TRUE(&data == &payload && &map == &parameters) << "handed through as is";
                return handler(given);
            },
            nullptr, description);
    }
    std::string broadcast(const std::string& paths) {
        calls.clear();
        events->BroadcastEvent(paths, payload, parameters, nullptr);
        return calls;
    }

    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::string calls;
    event_data payload;
    routing_parameters parameters{{"synchronous", 0}};
};

TEST_F(Broadcast, MergesHandlersFoundThroughSeveralPaths) {
    const auto wildcard = listen("a.*", "wild");
    const auto exact = listen("a.x", "exact");
    const auto root = listen("*", "root");
    EXPECT_EQ(broadcast("a.b;a.x"), "wild<a.b;a.x> root<a.b;a.x> exact<a.x> ");
    EXPECT_EQ(broadcast(";a.x;;a.x;a.x;"),
              "exact<a.x;a.x;a.x> wild<a.x;a.x;a.x> root<a.x;a.x;a.x> ");
    EXPECT_EQ(broadcast(""), "") << "no path at all reaches not even the root";
}

TEST_F(Broadcast, DroppedCallablesGoAtOnceOrWhenTheirCallEnds) {
    for (const bool is_remembered : {false, true}) {
        auto first_owns = std::make_shared<int>();
        auto second_owns = std::make_shared<int>();
        const std::weak_ptr first_has(first_owns);
        const std::weak_ptr second_has(second_owns);
        bool drops = false;
        cookie first;
        cookie second;
        const auto drop_both = [&] {
            second.reset();
            EXPECT_TRUE(second_has.expired()) << "its turn had not come";
            first.reset();
            EXPECT_FALSE(first_has.expired()) << "it is running";
        };
        first = listen("a", "first", [&, owned = std::move(first_owns)](const std::string&) {
            if (drops)
                std::jthread(drop_both).join();
            return true;
        });
        second = listen("a", "second", [&, owned = std::move(second_owns)](const std::string&) {
            EXPECT_FALSE(drops);
            return true;
        });
        const auto third = listen("a", "third", [&](const std::string&) {
            EXPECT_EQ(first_has.expired(), drops) << "not with the end of the broadcast";
            return true;
        });
        if (is_remembered)
            broadcast("a");
        drops = true;
        broadcast("a");
    }
}

TEST_F(Broadcast, OneHandlersFailureOrRefusalIsNobodyElses) {
    const test::log_capture log(5);
    std::string reported;
    const platform::exception_observer observer([&](auto code, auto arguments) {
        EXPECT_EQ(code, platform::diagnostic::exception_report);
        reported +=
            exceptions::brief_text(*reinterpret_cast<const std::exception_ptr*>(arguments[0]));
    });
    const auto refuses = listen("a.*", "refuses", false);
    const auto throws = listen("a.*", "t1", [](auto&) -> bool { throw std::runtime_error("r"); });
    const auto worse = listen("*", "t2", [](auto&) -> bool { throw exceptions::fatal("f"); });
    const auto no_parts = events->RegisterEventHandler(nullptr, "a.*", nullptr, nullptr, "empty");
    const auto last = listen("*", "last");
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(broadcast("a.b;a.c"), "refuses<a.b;a.c> last<a.b;a.c> ");
    EXPECT_EQ(reported, "rf") << "each path and description is reported once";
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 4u) << "but logged every time";
    const std::string begin = "Synchronous part of handler for a.b;a.c, level=";
    EXPECT_EQ(lines[0].text, begin + "1, description=t1 throws exception!\nr");
    EXPECT_EQ(lines[0].severity, 7);
    EXPECT_EQ(lines[0].module, "event_rout");
    EXPECT_TRUE(
        lines[1].text.starts_with(begin + "0, description=t2 throws exception!\nf (thrown at "));
    EXPECT_EQ(lines[1].severity, 8);
    broadcast("a.b");
    EXPECT_EQ(reported, "rfrf") << "another path";
}

TEST_F(Broadcast, IsNotWaitedForByADropOnAnotherThread) {
    platform::event running(platform::reset_mode::manual, false);
    platform::event go_on(platform::reset_mode::manual, false);
    auto captured = std::make_shared<int>(7);
    const std::weak_ptr<int> alive = captured;
    auto slow = listen("a", "slow", [&, captured](const std::string&) {
        running.set();
        EXPECT_TRUE(go_on.wait(platform::patience));
        return *captured == 7;
    });
    captured.reset();
    std::jthread broadcaster([&] { events->BroadcastEvent("a", payload, parameters, nullptr); });
    ASSERT_TRUE(running.wait(platform::patience));
    slow.reset(); // would wait for ever
    EXPECT_FALSE(alive.expired()) << "the started part keeps its callable";
    go_on.set();
    broadcaster.join();
    EXPECT_TRUE(alive.expired());
}

TEST_F(Broadcast, EndsWithItsThread) {
    const auto ends = listen("a", "ends", [](auto&) -> bool { platform::end_this_thread(); });
    const auto after = listen("*", "after");
    std::thread([&] { events->BroadcastEvent("a", payload, parameters, nullptr); }).join();
    EXPECT_EQ(calls, "") << "no later handler ran";
}

TEST_F(Broadcast, HandlersMayComeGoAndBroadcastFromInside) {
    cookie second, own;
    std::vector<cookie> late;
    const auto first = listen("a", "first", [&](const std::string&) {
        calls += "first ";
        second.reset();
        late.push_back(listen("a", "late"));
        return true;
    });
    second = listen("a", "second");
    own = listen("a", "own", [&](const std::string&) {
        calls += "own ";
        own.reset();
        events->BroadcastEvent("b", payload, parameters, nullptr);
        return true;
    });
    const auto nested = listen("b", "nested");
    EXPECT_EQ(broadcast("a"), "first own nested<b> ");
    EXPECT_EQ(broadcast("a"), "first late<a> ");
}

TEST_F(Broadcast, LogsAndListsRegistrations) {
    const test::log_capture log(0);
    EXPECT_THROW(listen("a*", "bad"), exceptions::error);
    const auto good = listen("a.b", "x");
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, "Registering event handler for a*.");
    using pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(events->GetEventHandlers(), (pairs{{"a.b", "x"}}));
}

} // namespace
} // namespace zel::event_routing::impl
