// Registration and its end, which are the same for all services.
#include "framework/event_routing/src/event_routing/routing/registration.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/routing.h"

namespace zel::event_routing::impl {

struct refusing_service {
    void Unregister(event_routing_node::registration) { throw std::runtime_error("refused"); }
    thread_records& threads() { return *threads_; }
    std::shared_ptr<thread_records> threads_ = thread_records::shared();
};

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::impl::refusing_service> {
    static std::string text() { return "class service"; }
};

namespace zel::event_routing::impl {
namespace {

using pairs = std::vector<std::pair<std::string, std::string>>;

class Registration : public Routing {
protected:
    struct handler {
        std::function<void()> called;
        bool operator()(auto&&...) const { return called(), true; }
    };
    struct kind {
        std::function<cookie(const handler&)> add;
        std::function<void()> call; // with outputs of its own, as threads call it
    };
    // Whatever is waited for by its removal.
    std::vector<kind> kinds() {
        const auto tell = [this] { broadcast("a", until_ended); };
        const auto send = [this] {
            request_answer r, e;
            requests->SendRequest("a", nullptr, r, e, without_failure);
        };
        const auto roll = [this] {
            snowball_result r, e;
            snowballs->SendSnowball("a", nullptr, r, e, {});
        };
        return {{[=, this](auto& h) { return listen("a", nullptr, h); }, tell},
                {[=, this](auto& h) { return answer("a", h); }, send},
                {[=, this](auto& h) { return fallback("a", h); }, send},
                {[=, this](auto& h) { return redirect("a", h); }, send},
                {[=, this](auto& h) { return collect("a", h); }, roll},
                {[=, this](auto& h) { return events->RegisterMonitorHandler(h); }, tell},
                {[=, this](auto& h) { return requests->RegisterMonitorHandler(h); }, send},
                {[=, this](auto& h) { return snowballs->RegisterMonitorHandler(h); }, roll}};
    }
};

TEST_F(Registration, DropWaitsForCallsOnOtherThreadsAndDestroysTheCallableFirst) {
    for (const auto& each : kinds()) {
        running.reset();
        go_on.reset();
        std::atomic<int> calls = 0;
        // Destroying is the registrant's code: no lock is held that others need.
        std::shared_ptr<void> owned(nullptr, [&](auto) { std::jthread(each.call).join(); });
        const std::weak_ptr callable(owned);
        auto held = each.add({[&, owned = std::move(owned)] {
            ++calls;
            blocks()();
        }});
        const std::jthread caller(each.call);
        ASSERT_TRUE(running.comes());
        platform::watched_thread dropper([&] {
            held.reset();
            EXPECT_TRUE(callable.expired());
        });
        EXPECT_TRUE(dropper.falls_asleep());
        each.call(); // does not reach it
        go_on.set();
        dropper.join();
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Registration, DropFromInsideTheHandlerDoesNotWait) {
    for (const auto& each : kinds()) {
        int calls = 0;
        auto owned = std::make_shared<int>();
        const std::weak_ptr callable(owned);
        cookie own;
        own = each.add({[&, owned = std::move(owned)] {
            ++calls;
            own.reset();
            each.call();
            EXPECT_FALSE(callable.expired()) << "the running call keeps it";
        }});
        each.call();
        EXPECT_EQ(calls, 1) << "nothing starts after the drop";
        EXPECT_TRUE(callable.expired());
    }
}

TEST_F(Registration, IsDroppedWithinALimitThatLeavesWhatRunsToAnotherDrop) {
    const threading::universal_timeout soon{false, 1000};
    auto all = kinds();
    const kind synchronous = {[this](auto& h) { return listen("a", h); },
                              [this] { broadcast("a"); }};
    all.push_back(synchronous);
    for (const auto& each : all) {
        const bool is_synchronous = &each == &all.back();
        running.reset();
        go_on.reset();
        std::atomic<int> calls = 0;
        auto owned = std::make_shared<int>();
        const std::weak_ptr callable(owned);
        auto held = each.add({[&, owned = std::move(owned)] {
            ++calls;
            blocks()();
        }});
        if (!dynamic_cast<KeepRegisteredWithDescr*>(held.get())) {
            EXPECT_THROW((void)drop_within(held, soon), exceptions::error) << "a monitor";
            EXPECT_NE(held, nullptr);
            continue;
        }
        auto another = held;
        EXPECT_THROW((void)drop_within(held, soon), exceptions::error) << "somebody relies on it";
        EXPECT_THROW(drop_and_wait(held), exceptions::error);
        another.reset();

        const std::jthread caller(each.call);
        ASSERT_TRUE(running.comes());
        const auto left = drop_within(held, soon);
        EXPECT_EQ(left.text(), is_synchronous ? "a, x: 1 synchronous part, 0 other calls"
                                              : "a, x: 0 synchronous parts, 1 other call");
        EXPECT_NE(held, nullptr);
        each.call(); // does not reach it
        platform::watched_thread dropper([&] {
            drop_and_wait(held);
            EXPECT_TRUE(callable.expired());
            EXPECT_EQ(held, nullptr);
        });
        EXPECT_TRUE(dropper.falls_asleep());
        go_on.set();
        dropper.join();
        EXPECT_EQ(calls, 1);
    }
    cookie none;
    EXPECT_FALSE(drop_within(none, soon)) << "nothing to drop";
}

TEST_F(Registration, IsDroppedFromInsideOfItsOwnCallsWithoutWaiting) {
    cookie own;
    int calls = 0;
    own = listen("a", [&](auto&&...) {
        ++calls;
        EXPECT_EQ(drop_within(own, {}).synchronous_parts, 1u) << "this one";
        broadcast("a");
        drop_and_wait(own);
        return true;
    });
    broadcast("a");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(own, nullptr);
}

TEST_F(Registration, IsLoggedListedAndKeepsItsService) {
    const test::log_capture log(0);
    struct failing_sink : log::ILogSink {
        void Write(const log::record&) override { throw std::runtime_error("disk full"); }
    };
    const auto fails = log::get_log_module()->AddSink(std::make_shared<failing_sink>(), 0);
    const std::weak_ptr watched = snowballs;
    const cookies held = {listen("a.b", nullptr, nullptr, "e"), answer("a.c", nullptr, "r"),
                          fallback("a.y.*", nullptr, "f"), redirect("a.z", nullptr, "d")};
    auto last = collect("*", nullptr, "s");
    EXPECT_THROW(listen("a*", nullptr), exceptions::error);
    EXPECT_THROW(answer("b*", nullptr), exceptions::error);
    EXPECT_THROW(collect("c*", nullptr), exceptions::error);
    const std::string begin = "0 Registering ";
    EXPECT_EQ(log.texts(),
              (texts{begin + "event handler for a.b.", begin + "request handler for a.c.",
                     begin + "request fallback handler for a.y.*. Description: f",
                     begin + "request redirection handler for a.z. Description: d",
                     begin + "snowball handler for *.", begin + "event handler for a*.",
                     begin + "request handler for b*.", begin + "snowball handler for c*."}));
    EXPECT_EQ(events->GetEventHandlers(), (pairs{{"a.b", "e"}}));
    EXPECT_EQ(requests->GetRequestHandlers(), (pairs{{"a.c", "r"}}));
    EXPECT_EQ(snowballs->GetSnowballHandlers(), (pairs{{"*", "s"}}));
    EXPECT_EQ(dynamic_cast<KeepRegisteredWithDescr&>(*held[2]).description(), "a.y.*, f");
    snowballs.reset();
    EXPECT_FALSE(watched.expired());
    last.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(Registration, NeedsASharedServiceAndLeavesNothingBehindWithoutOne) {
    SnowballRoutingImpl on_the_stack;
    EXPECT_THROW(static_cast<void>(on_the_stack.RegisterSnowballHandler("a", nullptr, "")),
                 std::bad_weak_ptr);
    EXPECT_TRUE(on_the_stack.GetSnowballHandlers().empty());
}

TEST(Cookie, LogsItsFailureUnderItsFullTypeName) {
    const test::log_capture log(5);
    KeepRegistered<refusing_service, event_routing_node>(std::make_shared<refusing_service>(), {},
                                                         "");
    const std::string impl = "zel::event_routing::impl::";
    const std::string item = "struct " + impl + "RoutingMapNode<struct " + impl +
                             "EventRoutingNodeFunction,struct " + impl +
                             "EventRoutingNodeAdditionalData>::function_container_item";
    EXPECT_EQ(log.texts(),
              texts{"7 " + impl + "KeepRegistered<class service,struct std::pair<class std::list<" +
                    item + ",class std::allocator<" + item +
                    "> > *,class std::_List_iterator<class std::_List_val<struct "
                    "std::_List_simple_types<" +
                    item + "> > > > >::~KeepRegistered\nrefused"});
    EXPECT_EQ(log.lines().at(0).number, 313);
    EXPECT_EQ(type_name<EventRoutingImpl>(), "class " + impl + "EventRoutingImpl");

    const std::string text = "class std::basic_string<char,struct std::char_traits<char>,class "
                             "std::allocator<char> >";
    const std::string holder = "class std::shared_ptr<class zel::serialization::IDataHolder";
    const std::string value = "struct zel::event_routing::routing_parameter_value";
    EXPECT_EQ(type_name<request_routing_node>(),
              "struct " + impl + "RoutingMapNode<class std::function<bool __cdecl(" + text +
                  " const &," + holder + " const > const &," + holder + "> &," + holder +
                  "> &,class std::map<" + text + "," + value + ",struct std::less<" + text +
                  " >,class std::allocator<struct std::pair<" + text + " const ," + value +
                  "> > > const &)>,struct " + impl + "RequestRoutingNodeAdditionalData>");
}

} // namespace
} // namespace zel::event_routing::impl
