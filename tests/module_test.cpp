// The library as its clients see it: the shared library, loaded for real.
#include <event_routing/client.h>
#include <event_routing/drop.h>
#include <event_routing/exceptions.h>
#include <event_routing/pending_events.h>
#include <event_routing/typed.h>

#include <framework/module_interface/loader.h>
#include <framework/module_interface/module_lifetime.h>
#include <platform/library_image.h>
#include <tasklib/task_queue.h>

#include <gtest/gtest.h>
#include <thread>

namespace zel::event_routing {
namespace {

TEST(Module, IsOneObjectHoweverItIsAskedFor) {
    const auto module = get_module();
    {
        std::vector<std::jthread> askers;
        for (int asker = 0; asker < 8; ++asker)
            askers.emplace_back([&] { EXPECT_EQ(get_module(), module); });
    }
    const auto uses = module.use_count();
    EXPECT_EQ(CreateModuleRaw(), module.get());
    EXPECT_EQ(module.use_count(), uses);
    const auto lifetime = detail::GetModuleLifetimeObject();
    EXPECT_EQ(lifetime->GetModule([] { return detail::CreateModule(); }), module);
    EXPECT_FALSE(lifetime->IsModuleUsed());
    EXPECT_THROW(lifetime->RegisterModule(module.get()), exceptions::fatal);
}

TEST(Module, NumbersMessagesAndNamesFromOne) {
    const auto module = get_module();
    EXPECT_EQ(module->NextEventMessageId(), 1u);
    EXPECT_EQ(module->NextEventMessageId(), 2u);
    EXPECT_EQ(module->NextRequestMessageId(), 1u);
    EXPECT_EQ(module->NextSnowballMessageId(), 1u);
    EXPECT_EQ(module->CreateUniqueName(""), "ADD3D808-347A-4DF5-B2E8-C234DA07DCEC-1");
    EXPECT_EQ(module->CreateUniqueName("ab"), "abADD3D808-347A-4DF5-B2E8-C234DA07DCEC-2");
}

TEST(Module, OffersItsServicesCookiesAndQueuesBesideTheirInterfaces) {
    const auto module = get_module();
    const auto events = get_event_routing(*module);
    std::int64_t count = 0;
    auto cookie = events->RegisterEventHandler(
        nullptr, "a",
        [&](auto&, auto&, const routing_parameters& parameters) {
            count = parameters.at("cumulative_event_count").number;
            return true;
        },
        nullptr, "x");
    events->BroadcastCumulativeEvent({}, "a", nullptr, {}, nullptr);
    EXPECT_TRUE(flush_cumulative_event(*events, "a"));
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(cancel_cumulative_event(*events, "a"));
    drop_and_wait(cookie);
    EXPECT_TRUE(events->GetEventHandlers().empty());
    const auto queue = events->CreateTaskQueue();
    EXPECT_NE(tasklib::room_of(*queue), nullptr) << "queues tell their length";
}

// The handler is code of this program, and the failure is made by the library.
TEST(Module, RecognisesTypedHandlersOfItsClients) {
    const auto requests = get_request_routing(*get_module());
    using Check = Request<bool, std::string>;
    const auto cookie = requests->RegisterRequestHandler(
        "check", 0, Check::RequestHandler([](auto&) { return true; }), "typed");
    try {
        static_cast<void>(Request<bool, int>::Ask(*requests, "check", 1));
        ADD_FAILURE() << "an int is no text";
    } catch (const request_was_not_processed& failure) {
        ASSERT_EQ(failure.declined().size(), 1u);
        EXPECT_EQ(failure.declined()[0].description, "typed");
        EXPECT_EQ(failure.declined()[0].wanted_type, type_name<Check::input_data>());
    }
}

TEST(Module, RefusesBytesThatAreNoParameters) {
    const auto module = get_module();
    const auto bytes = module->SerializeRoutingParameters({{"a", 1}});
    EXPECT_EQ(module->DeserializeRoutingParameters(nullptr, 0), routing_parameters());
    EXPECT_THROW(module->DeserializeRoutingParameters(bytes.data(), 1), exceptions::error);
    EXPECT_THROW(module->DeserializeRoutingParameters(nullptr, 1), exceptions::error);
}

} // namespace
} // namespace zel::event_routing
