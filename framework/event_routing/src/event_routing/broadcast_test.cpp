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

class payload final : public serialization::IDataHolder {
public:
    std::shared_ptr<serialization::IData> GetData() const override { return nullptr; }
};

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
            [=](const std::string& given, const auto&, const auto&) { return handler(given); },
            nullptr, description);
    }
    std::string broadcast(const std::string& paths) {
        calls.clear();
        events->BroadcastEvent(paths, nullptr, {}, nullptr);
        return calls;
    }

    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::string calls;
};

struct not_a_standard_exception {};

class canceled final : public exceptions::special_handling {
public:
    const char* type_name() const noexcept override { return "test::canceled"; }
};

TEST_F(Broadcast, MergesHandlersFoundThroughSeveralPaths) {
    const auto wildcard = listen("a.*", "wild");
    const auto exact = listen("a.x", "exact");
    const auto root = listen("*", "root");
    EXPECT_EQ(broadcast("a.b;a.x"), "wild<a.b;a.x> root<a.b;a.x> exact<a.x> ");
    EXPECT_EQ(broadcast(";a.x;;a.b;"), "exact<a.x> wild<a.x;a.b> root<a.x;a.b> ");
    EXPECT_EQ(broadcast("a.x;a.x;a.x"), "exact<a.x;a.x;a.x> wild<a.x;a.x;a.x> root<a.x;a.x;a.x> ");
    EXPECT_EQ(broadcast(""), "") << "no path at all reaches not even the root";
    EXPECT_EQ(broadcast(";"), "");
}

TEST_F(Broadcast, HandsPayloadAndParametersThroughUnchanged) {
    const event_data data = std::make_shared<payload>();
    const routing_parameters parameters{{"synchronous", 0}, {"x", "y"}};
    int seen = 0;
    const auto handler = events->RegisterEventHandler(
        nullptr, "a",
        [&](const std::string&, const event_data& d, const routing_parameters& p) {
            seen += d == data && &p == &parameters;
            return false;
        },
        nullptr, "d");
    events->BroadcastEvent("a", data, parameters, nullptr);
    EXPECT_EQ(seen, 1);
}

TEST_F(Broadcast, OneHandlersFailureOrRefusalIsNobodyElses) {
    const test::log_capture log;
    std::vector<std::string> reported;
    const platform::exception_observer observer([&](auto code, auto arguments) {
        if (code == platform::diagnostic::exception_report)
            try {
                std::rethrow_exception(*reinterpret_cast<const std::exception_ptr*>(arguments[0]));
            } catch (const std::exception& e) {
                reported.push_back(e.what());
            } catch (...) {
                reported.push_back("other");
            }
    });
    const auto refuses = listen("a", "refuses", false);
    const auto throws = listen("a", "t1", [](auto&) -> bool { throw std::runtime_error("r"); });
    const auto worse = listen("a", "t2", [](auto&) -> bool { throw exceptions::fatal("f"); });
    const auto odd = listen("a", "t3", [](auto&) -> bool { throw not_a_standard_exception(); });
    const auto special = listen("a", "t4", [](auto&) -> bool { throw canceled(); });
    const auto last = listen("*", "last");
    EXPECT_EQ(broadcast("a"), "refuses<a> last<a> ");
    EXPECT_EQ(broadcast("a"), "refuses<a> last<a> ");
    EXPECT_EQ(reported, (std::vector<std::string>{"r", "f", "other", "other"}))
        << "each path and description is reported once";

    const auto lines = log.lines(7);
    ASSERT_EQ(lines.size(), 6u) << "but logged every time";
    const std::string begin = "Synchronous part of handler for a, level=1, description=";
    EXPECT_EQ(lines[0].text, begin + "t1 throws exception!\nr");
    EXPECT_EQ(lines[1].text, begin + "t3 throws exception!\nException: Unknown");
    EXPECT_EQ(lines[2].text, begin + "t4 throws exception!\nException: test::canceled");
    EXPECT_EQ(lines[0].module, "event_rout");
    ASSERT_EQ(log.lines(8).size(), 2u);
    EXPECT_EQ(log.lines(8)[0].text.rfind(begin + "t2 throws exception!\nf (thrown at ", 0), 0u);
}

TEST_F(Broadcast, TellsFailuresByAllPathsTheLevelAndTheDescription) {
    const test::log_capture log(7);
    int reports = 0;
    const platform::exception_observer observer([&](auto&&...) { ++reports; });
    const auto throws = [](auto&) -> bool { throw 1; };
    const auto wildcard = listen("p.*", "same", throws);
    const auto root = listen("*", "same", throws);
    broadcast("p.b.c;p.x");
    EXPECT_EQ(log.lines()[0].text, "Synchronous part of handler for p.b.c;p.x, level=1, "
                                   "description=same throws exception!\nException: Unknown");
    EXPECT_EQ(log.lines()[1].text, "Synchronous part of handler for p.b.c;p.x, level=0, "
                                   "description=same throws exception!\nException: Unknown");
    EXPECT_EQ(reports, 1) << "path and description are the key, the level is not";
    broadcast("p.y");
    EXPECT_EQ(reports, 2) << "another path";
    events = std::make_shared<EventRoutingImpl>();
    const auto in_another_service = listen("*", "same", throws);
    broadcast("p.y");
    EXPECT_EQ(reports, 2) << "known to the whole process";
}

TEST_F(Broadcast, ListsButNeverRunsAHandlerWithoutParts) {
    const test::log_capture log(5);
    const auto empty = events->RegisterEventHandler(nullptr, "a", nullptr, nullptr, "empty");
    EXPECT_EQ(broadcast("a"), "");
    EXPECT_EQ(events->GetEventHandlers().size(), 1u);
    EXPECT_TRUE(log.lines().empty());
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
    std::jthread broadcaster([&] { events->BroadcastEvent("a", nullptr, {}, nullptr); });
    ASSERT_TRUE(running.wait(platform::patience));
    slow.reset(); // would wait for ever
    EXPECT_FALSE(alive.expired()) << "the started part keeps its callable";
    EXPECT_EQ(broadcast("a"), "");
    go_on.set();
    broadcaster.join();
    EXPECT_TRUE(alive.expired());
}

TEST_F(Broadcast, EndsWithItsThread) {
    const test::log_capture log(5);
    const auto ends = listen("a", "ends", [](auto&) -> bool { platform::end_this_thread(); });
    const auto after = listen("*", "after");
    std::thread([&] { events->BroadcastEvent("a", nullptr, {}, nullptr); }).join();
    EXPECT_EQ(calls, "") << "no later handler ran";
    EXPECT_TRUE(log.lines().empty());
    EXPECT_NE(listen("b", "still possible"), nullptr);
}

TEST_F(Broadcast, RegistersNothingWhenASinkRefusesTheRecord) {
    struct bad_sink : log::ILogSink {
        void Write(const log::record&) override { throw std::runtime_error("sink"); }
    };
    const auto bad = log::get_log_module()->AddSink(std::make_shared<bad_sink>(), 0);
    EXPECT_THROW(listen("a", "refused"), std::runtime_error);
    EXPECT_TRUE(events->GetEventHandlers().empty());
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
        const auto keep_alive = calls; // the captures live until the call returns
        own.reset();
        events->BroadcastEvent("b", nullptr, {}, nullptr);
        return true;
    });
    const auto nested = listen("b", "nested");
    EXPECT_EQ(broadcast("a"), "first own nested<b> ");
    EXPECT_EQ(broadcast("a"), "first late<a> ");
}

TEST_F(Broadcast, LogsRegistrationsBeforeAnythingIsChanged) {
    const test::log_capture log;
    EXPECT_THROW(listen("a*", "bad"), exceptions::error);
    const auto good = listen("a.b", "x");
    ASSERT_EQ(log.lines(0).size(), 2u);
    EXPECT_EQ(log.lines(0)[0].text, "Registering event handler for a*.");
    EXPECT_EQ(log.lines(0)[1].text, "Registering event handler for a.b.");
    using pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(events->GetEventHandlers(), (pairs{{"a.b", "x"}}));
}

TEST_F(Broadcast, NamesTheOperationThatIsStillToCome) {
    const auto message = [](auto&& call) -> std::string {
        try {
            call();
        } catch (const exceptions::fatal& failure) {
            return failure.what();
        }
        return "";
    };
    EXPECT_NE(message([&] { events->CreateTaskQueue(); }).find("CreateTaskQueue"),
              std::string::npos);
    const auto refused = message([&] {
        events->RegisterEventHandler(
            nullptr, "a", nullptr, [](auto&&...) {}, "asynchronous");
    });
    EXPECT_NE(refused.find("RegisterEventHandler"), std::string::npos);
    EXPECT_TRUE(events->GetEventHandlers().empty());
}

} // namespace
} // namespace zel::event_routing::impl
