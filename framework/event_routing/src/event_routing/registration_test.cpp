#include "framework/event_routing/src/event_routing/registration.h"

#include "framework/event_routing/src/event_routing/event_routing_impl.h"
#include "framework/exceptions/exceptions.h"
#include "tests/support/bare_service.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/event.h>

#include <thread>

namespace zel::test {

using namespace event_routing::impl;
using platform::milliseconds;
using platform::reset_mode;

// Tells when the last copy of a callable goes.
struct tracked {
    std::shared_ptr<platform::event> destroyed;
    std::shared_ptr<int> alive = std::shared_ptr<int>(new int, [gone = destroyed](int* p) {
        delete p;
        gone->set();
    });
};

using service = bare_service<tracked>;
using node = service::node;

} // namespace zel::test

template <>
struct zel::declared_type_name<zel::test::tracked> {
    static std::string text() { return "struct test::tracked"; }
};

namespace zel::test {

class Registration : public testing::Test {
protected:
    std::shared_ptr<service> owner = std::make_shared<service>();
    std::shared_ptr<platform::event> destroyed =
        std::make_shared<platform::event>(reset_mode::manual, false);
    std::shared_ptr<tasklib::keep_registered> cookie = owner->add("a.b", tracked{destroyed});
    std::shared_ptr<node::registered_handler> record = owner->find("a.b");
};

TEST_F(Registration, KeepsItsServiceAliveAndDescribesItself) {
    const std::weak_ptr<service> watched = owner;
    EXPECT_EQ(dynamic_cast<KeepRegisteredWithDescr&>(*cookie).description(), "a.b, x");
    EXPECT_EQ(cookie->GetInterfaceVersion(), 1);
    owner.reset();
    EXPECT_FALSE(watched.expired());
    cookie.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(record->use(), nullptr) << "a collected record never revives its callable";
}

TEST_F(Registration, DropWaitsForCallsOnOtherThreadsAndDestroysTheCallableFirst) {
    record->lock().lock_shared();
    platform::event dropped(reset_mode::manual, false);
    std::thread dropper([&] {
        cookie.reset();
        EXPECT_TRUE(destroyed->wait(milliseconds(0)));
        dropped.set();
    });
    // The handler is unlinked at once; the drop itself waits for the hold.
    while (owner->find("a.b")) {
    }
    EXPECT_FALSE(dropped.wait(milliseconds(50)));
    EXPECT_NE(record->use(), nullptr) << "calls inside the hold go on";
    record->lock().unlock_shared();
    EXPECT_TRUE(dropped.wait(milliseconds(30000)));
    dropper.join();
    EXPECT_EQ(record->use(), nullptr);
}

TEST_F(Registration, DropFromInsideTheHandlerDoesNotWait) {
    {
        const running_call call(*record);
        ASSERT_TRUE(call);
        cookie.reset();
        EXPECT_FALSE(running_call(*record)) << "nothing starts after the drop";
        EXPECT_FALSE(destroyed->wait(milliseconds(0))) << "the running call keeps its callable";
    }
    EXPECT_TRUE(destroyed->wait(milliseconds(0)));
}

// Both locks must be free while a registrant's code runs: its callable is copied,
// refused and destroyed outside of them.
TEST_F(Registration, DestroysCallablesWithoutHoldingALock) {
    service::record other_record;
    bool locks_were_free = false;
    const auto other_thread_gets_in = [&, owner = owner](int* p) {
        delete p;
        platform::event got_in(reset_mode::manual, false);
        std::thread([&] {
            owner->find("c");
            if (other_record)
                running_call{*other_record};
            got_in.set();
        }).detach();
        locks_were_free = got_in.wait(milliseconds(10000));
    };
    auto other = owner->add("c", tracked{destroyed, {new int, other_thread_gets_in}});
    other_record = owner->find("c");
    other.reset();
    EXPECT_TRUE(locks_were_free);

    locks_were_free = false;
    EXPECT_THROW(owner->add("c*", tracked{destroyed, {new int, other_thread_gets_in}}),
                 exceptions::error);
    EXPECT_TRUE(locks_were_free);
}

TEST_F(Registration, FailedUnregistrationIsLoggedAndLeavesTheHandler) {
    const test::log_capture log;
    {
        threading::shared_lock_guard held_shared_only(owner->routing_lock);
        cookie.reset();
    }
    const auto lines = log.lines(7);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, "event_rout");
    EXPECT_EQ(lines[0].number, 313);
    const std::string context =
        "zel::event_routing::impl::KeepRegistered<class test::service,struct std::pair<class "
        "std::list<struct zel::event_routing::impl::RoutingMapNode<struct test::tracked,struct "
        "test::nothing>::function_container_item,class std::allocator<struct "
        "zel::event_routing::impl::RoutingMapNode<struct test::tracked,struct "
        "test::nothing>::function_container_item> > *,class std::_List_iterator<class "
        "std::_List_val<struct std::_List_simple_types<struct "
        "zel::event_routing::impl::RoutingMapNode<struct test::tracked,struct "
        "test::nothing>::function_container_item> > > > >::~KeepRegistered\n"
        "zel::threading::recursive_shared_mutex::try_set_exclusive_mode: writer lock is not "
        "enabled when thread holds reader lock.";
    EXPECT_EQ(lines[0].text.substr(0, context.size()), context);
    EXPECT_NE(owner->find("a.b"), nullptr);
}

TEST(EventCookie, IsNamedInTheLogByItsFullType) {
    const std::string item =
        "struct zel::event_routing::impl::RoutingMapNode<struct "
        "zel::event_routing::impl::EventRoutingNodeFunction,struct "
        "zel::event_routing::impl::EventRoutingNodeAdditionalData>::function_container_item";
    const auto name = KeepRegistered<EventRoutingImpl, event_routing_node>::own_type_name();
    EXPECT_EQ(name, "zel::event_routing::impl::KeepRegistered<class "
                    "zel::event_routing::impl::EventRoutingImpl,struct std::pair<class std::list<" +
                        item + ",class std::allocator<" + item +
                        "> > *,class std::_List_iterator<class std::_List_val<struct "
                        "std::_List_simple_types<" +
                        item + "> > > > >");
}

TEST_F(Registration, NeedsASharedServiceAndLeavesNothingBehindWithoutOne) {
    service on_the_stack;
    EXPECT_THROW(on_the_stack.add("a", tracked{destroyed}), std::bad_weak_ptr);
    EXPECT_EQ(on_the_stack.find("a"), nullptr);
}

} // namespace zel::test
