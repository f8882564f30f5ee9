#include "framework/event_routing/src/event_routing/registration.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/event.h>

#include <thread>

namespace zel::test {
struct tracked;
struct nothing {};
class service;
} // namespace zel::test

template <>
struct zel::declared_type_name<zel::test::service> {
    static std::string text() { return "class test::service"; }
};
template <>
struct zel::declared_type_name<zel::test::tracked> {
    static std::string text() { return "struct test::tracked"; }
};
template <>
struct zel::declared_type_name<zel::test::nothing> {
    static std::string text() { return "struct test::nothing"; }
};

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

using node = RoutingMapNode<tracked, nothing>;

class service : public std::enable_shared_from_this<service> {
public:
    std::shared_ptr<tasklib::keep_registered> add(const std::string& path, tracked function) {
        threading::exclusive_lock_guard map_is_mine(routing_lock);
        return register_handler(*this, map, path, std::move(function), nothing(), "x");
    }
    void Unregister(node::registration position) {
        unregister_handler<node>(routing_lock, position);
    }
    std::shared_ptr<node::handler_record> find(const std::string& path) {
        node::collected_handlers found;
        map.CollectHandlers(path, found);
        return found.empty() ? nullptr : found.front().handler;
    }

    threading::recursive_shared_mutex routing_lock;
    node map;
};

class Registration : public testing::Test {
protected:
    std::shared_ptr<service> owner = std::make_shared<service>();
    std::shared_ptr<platform::event> destroyed =
        std::make_shared<platform::event>(reset_mode::manual, false);
    std::shared_ptr<tasklib::keep_registered> cookie = owner->add("a.b", tracked{destroyed});
    std::shared_ptr<node::handler_record> record = owner->find("a.b");
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
    while (true) {
        threading::shared_lock_guard map_is_stable(owner->routing_lock);
        if (!owner->find("a.b"))
            break;
    }
    EXPECT_FALSE(dropped.wait(milliseconds(50)));
    EXPECT_NE(record->use(), nullptr) << "calls inside the hold go on";
    record->lock().unlock_shared();
    EXPECT_TRUE(dropped.wait(milliseconds(30000)));
    dropper.join();
    EXPECT_EQ(record->use(), nullptr);
}

TEST_F(Registration, DropFromInsideTheHandlerDoesNotWait) {
    threading::shared_lock_guard running(record->lock());
    const auto call = record->use();
    cookie.reset();
    EXPECT_EQ(record->use(), nullptr) << "nothing starts after the drop";
    EXPECT_FALSE(destroyed->wait(milliseconds(0))) << "the running call keeps its callable";
}

TEST_F(Registration, CallableMayUseTheServiceFromItsDestructor) {
    struct reentrant {
        std::shared_ptr<service> owner;
        std::shared_ptr<platform::event> gone;
        ~reentrant() {
            owner->add("late", tracked{gone}).reset();
            gone->set();
        }
    };
    auto gone = std::make_shared<platform::event>(reset_mode::manual, false);
    auto other = owner->add("c", tracked{gone, std::shared_ptr<int>(new int(), [=, this](int* p) {
                                             const reentrant ends_here{owner, gone};
                                             delete p;
                                         })});
    other.reset();
    EXPECT_TRUE(gone->wait(milliseconds(0)));
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

TEST_F(Registration, NeedsASharedServiceAndLeavesNothingBehindWithoutOne) {
    service on_the_stack;
    EXPECT_THROW(on_the_stack.add("a", tracked{destroyed}), std::bad_weak_ptr);
    EXPECT_EQ(on_the_stack.find("a"), nullptr);
}

} // namespace zel::test
