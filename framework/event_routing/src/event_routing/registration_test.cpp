#include "framework/event_routing/src/event_routing/registration.h"

#include "framework/event_routing/src/event_routing/event_routing_impl.h"
#include "framework/exceptions/exceptions.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/bare_service.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <optional>

namespace zel::test {

using namespace event_routing::impl;
using platform::milliseconds;
using platform::patience;

// Owned by every copy of a callable; runs the action when the last copy goes.
using callable = std::shared_ptr<int>;
using service = bare_service<callable>;

class Registration : public testing::Test {
protected:
    static callable with_end(std::function<void()> action) {
        return {new int, [action](int* p) {
                    delete p;
                    action();
                }};
    }
    bool is_destroyed() { return destroyed.wait(milliseconds(0)); }

    platform::event destroyed{platform::reset_mode::manual, false};
    std::shared_ptr<service> owner = std::make_shared<service>();
    std::shared_ptr<tasklib::keep_registered> cookie =
        owner->add("a.b", with_end([this] { destroyed.set(); }));
    service::record record = owner->find("a.b");
};

TEST_F(Registration, KeepsItsServiceAliveAndDescribesItself) {
    const std::weak_ptr<service> watched = owner;
    EXPECT_EQ(dynamic_cast<KeepRegisteredWithDescr&>(*cookie).description(), "a.b, x");
    owner.reset();
    EXPECT_FALSE(watched.expired());
    cookie.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_FALSE(call(*record)) << "a collected record never revives its callable";
}

TEST_F(Registration, DropWaitsForCallsOnOtherThreadsAndDestroysTheCallableFirst) {
    std::optional<platform::watched_thread> dropper;
    {
        const running_call running(*record);
        dropper.emplace([&] {
            cookie.reset();
            EXPECT_TRUE(is_destroyed());
        });
        EXPECT_TRUE(dropper->falls_asleep());
        EXPECT_EQ(owner->find("a.b"), nullptr) << "unlinked at once";
        EXPECT_FALSE(running_call(*record)) << "nothing begins any more";
        EXPECT_FALSE(is_destroyed());
    }
    dropper->join();
}

TEST_F(Registration, DropFromInsideTheHandlerDoesNotWait) {
    {
        const running_call inside(*record);
        cookie.reset();
        EXPECT_FALSE(running_call(*record)) << "nothing starts after the drop";
        EXPECT_FALSE(call(*record));
        EXPECT_FALSE(is_destroyed()) << "the running call keeps its callable";
    }
    EXPECT_TRUE(is_destroyed());
}

// Copying, refusing and destroying a callable is the registrant's code.
TEST_F(Registration, DestroysCallablesWithoutHoldingALock) {
    int ends_without_locks = 0;
    const auto other_thread_gets_in = [&] {
        platform::event got_in(platform::reset_mode::manual, false);
        const std::jthread other([&] {
            owner->find("c");
            running_call{*record};
            got_in.set();
        });
        ends_without_locks += got_in.wait(patience);
    };
    EXPECT_THROW(owner->add("c*", with_end(other_thread_gets_in)), exceptions::error);
    auto other = owner->add("c", with_end(other_thread_gets_in));
    record = owner->find("c");
    other.reset();
    EXPECT_EQ(ends_without_locks, 2);
}

TEST_F(Registration, FailedUnregistrationIsLoggedAndLeavesTheHandler) {
    const log_capture log(5);
    {
        threading::shared_lock_guard held_shared_only(owner->routing_lock);
        cookie.reset();
    }
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].severity, 7);
    EXPECT_EQ(log.lines()[0].number, 313);
    EXPECT_TRUE(log.lines()[0].text.starts_with(
        KeepRegistered<service, service::node>::own_type_name() +
        "::~KeepRegistered\nzel::threading::recursive_shared_mutex::try_set_exclusive_mode: "
        "writer lock is not enabled when thread holds reader lock."));
    EXPECT_NE(owner->find("a.b"), nullptr);
}

TEST_F(Registration, NeedsASharedServiceAndLeavesNothingBehindWithoutOne) {
    service on_the_stack;
    EXPECT_THROW(on_the_stack.add("a", nullptr), std::bad_weak_ptr);
    EXPECT_EQ(on_the_stack.find("a"), nullptr);
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

} // namespace zel::test
