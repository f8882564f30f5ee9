#include "framework/exceptions/exceptions.h"
#include "tests/support/routing.h"

#include <platform/diagnostics.h>

namespace zel::event_routing::impl {
namespace {

using Broadcast = Routing;

TEST_F(Broadcast, MergesHandlersFoundThroughSeveralPaths) {
    const cookies handlers = {listen("a.*", notes("wild")), listen("a.x", notes("exact")),
                              listen("*", notes("root"))};
    EXPECT_EQ(notes_of("a.b;a.x"), "wild<a.b;a.x> root<a.b;a.x> exact<a.x>");
    EXPECT_EQ(notes_of(";a.x;;a.x;a.x;"), "exact<a.x;a.x;a.x> wild<a.x;a.x;a.x> root<a.x;a.x;a.x>");
    EXPECT_EQ(notes_of(""), "") << "no path at all reaches not even the root";

    const routing_parameters parameters{{"synchronous", 0}};
    const auto handler = listen("b", [&](auto&, const auto& payload, const auto& map) {
        EXPECT_TRUE(&payload == &data && &map == &parameters) << "handed through as is";
        return true;
    });
    EXPECT_EQ(notes_of("b", parameters), "root<b>");
}

// A drop on another thread waits for no synchronous part.
TEST_F(Broadcast, DroppedCallablesGoAtOnceOrWhenTheirCallEnds) {
    for (const bool is_remembered : {false, true}) {
        auto first_owns = std::make_shared<int>();
        auto second_owns = std::make_shared<int>();
        const std::weak_ptr first_has(first_owns);
        const std::weak_ptr second_has(second_owns);
        bool drops = false;
        cookie first, second;
        const auto drop_both = [&] {
            second.reset();
            EXPECT_TRUE(second_has.expired()) << "its turn had not come";
            first.reset();
            EXPECT_FALSE(first_has.expired()) << "it is running";
        };
        first = listen("a", [&, owned = std::move(first_owns)](auto&&...) {
            if (drops)
                std::jthread(drop_both).join();
            return true;
        });
        second = listen("a", [&, owned = std::move(second_owns)](auto&&...) {
            EXPECT_FALSE(drops);
            return true;
        });
        const auto third = listen("a", [&](auto&&...) {
            EXPECT_EQ(first_has.expired(), drops) << "not with the end of the broadcast";
            return true;
        });
        if (is_remembered)
            broadcast("a");
        drops = true;
        broadcast("a");
        EXPECT_TRUE(first_has.expired());
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
    const auto throws = [](auto failure) { return [=](auto&&...) -> bool { throw failure; }; };
    const cookies handlers = {listen("a.*", notes("refuses", false)),
                              listen("a.*", throws(std::runtime_error("r")), nullptr, "t1"),
                              listen("*", throws(exceptions::fatal("f")), nullptr, "t2"),
                              listen("a.*", nullptr), listen("*", notes("last"))};
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(notes_of("a.b;a.c"), "refuses<a.b;a.c> last<a.b;a.c>");
    EXPECT_EQ(reported, "rf") << "each path and description is reported once";
    const auto lines = log.texts();
    ASSERT_EQ(lines.size(), 4u) << "but logged every time";
    const std::string begin = " Synchronous part of handler for a.b;a.c, level=";
    EXPECT_EQ(lines[0], "7" + begin + "1, description=t1 throws exception!\nr");
    EXPECT_TRUE(
        lines[1].starts_with("8" + begin + "0, description=t2 throws exception!\nf (thrown at "));
    EXPECT_EQ(log.lines()[0].module, "event_rout");
    broadcast("a.b");
    EXPECT_EQ(reported, "rfrf") << "another path";
}

TEST_F(Broadcast, EndsWithItsThread) {
    const cookies handlers = {listen("a", [](auto&&...) -> bool { platform::end_this_thread(); }),
                              listen("*", notes("after"))};
    std::thread([&] { broadcast("a"); }).join();
    EXPECT_EQ(taken_notes(), "") << "no later handler ran";
}

TEST_F(Broadcast, HandlersMayComeGoAndBroadcastFromInside) {
    cookie second, own;
    cookies late;
    const auto first = listen("a", [&](auto&&...) {
        note("first");
        second.reset();
        late.push_back(listen("a", notes("late")));
        return true;
    });
    second = listen("a", notes("second"));
    own = listen("a", [&](auto&&...) {
        note("own");
        own.reset();
        broadcast("b");
        return true;
    });
    const auto nested = listen("b", notes("nested"));
    EXPECT_EQ(notes_of("a"), "first own nested<b>");
    EXPECT_EQ(notes_of("a"), "first late<a>");
}

} // namespace
} // namespace zel::event_routing::impl
