// The library as its clients see it: the shared library, loaded for real.
#include <event_routing/client.h>

#include <framework/module_interface/loader.h>
#include <framework/module_interface/module_lifetime.h>
#include <platform/library_image.h>

#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace zel::event_routing {
namespace {

TEST(Module, IsOneObjectHoweverItIsAskedFor) {
    std::vector<std::shared_ptr<IModule>> seen(8);
    {
        std::vector<std::jthread> askers;
        for (auto& slot : seen)
            askers.emplace_back([&slot] { slot = get_module(); });
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1u);
    const auto uses = seen[0].use_count();
    EXPECT_EQ(CreateModuleRaw(), seen[0].get());
    EXPECT_EQ(seen[0].use_count(), uses);
    EXPECT_EQ(seen[0]->GetEventRouting(), seen[0]->GetEventRouting());
}

// The program is linked with the library, so it is not the loader's to end.
TEST(Module, SurvivesALoaderThatGivesItBack) {
    auto& loader = mi::loader();
    const auto image = loader.load_dll("event_routing", mi::implementation_address());
    EXPECT_EQ(image, platform::image_of(reinterpret_cast<const void*>(&CreateModuleRaw)));
    EXPECT_FALSE(loader.free_dll(image));
    EXPECT_NE(get_module(), nullptr);
}

TEST(Module, StatesItsVersions) {
    const auto module = get_module();
    EXPECT_EQ(module->GetExportableVersion(), 1);
    EXPECT_EQ(module->GetCheckVersion(), 1);
    EXPECT_EQ(module->GetBaseVersion(), 3);
    EXPECT_EQ(module->GetInterfaceVersion(), 16);
    EXPECT_EQ(module->GetLibraryDescriptor().reserved, 0u);
    const auto events = get_event_routing(*module);
    EXPECT_EQ(events->GetBaseVersion(), 2);
    EXPECT_EQ(events->GetInterfaceVersion(), 15);
    const auto own = platform::image_path(platform::image_of(module->GetImplementationAddress()));
    EXPECT_NE(own.find("libevent_routing.so"), std::string::npos);
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

TEST(Module, TurnsParametersIntoBytesAndBack) {
    const auto module = get_module();
    const routing_parameters parameters{{"a", 1}, {"b", "text"}};
    const auto bytes = module->SerializeRoutingParameters(parameters);
    EXPECT_EQ(module->DeserializeRoutingParameters(bytes.data(), bytes.size()), parameters);
    EXPECT_EQ(module->DeserializeRoutingParameters(nullptr, 0), routing_parameters());
    // Caught by its type although another library threw it.
    EXPECT_THROW(module->DeserializeRoutingParameters(bytes.data(), 1), exceptions::error);
}

TEST(Module, NamesTheServicesThatAreStillToCome) {
    const auto module = get_module();
    EXPECT_THROW(module->GetNamedEventRouting("name"), exceptions::fatal);
    EXPECT_THROW(module->GetRequestRouting(), exceptions::fatal);
    EXPECT_THROW(module->GetSnowballRouting(), exceptions::fatal);
    EXPECT_THROW(module->GetInWndProcHandling(platform::window_handle::none), exceptions::fatal);
}

TEST(Module, LifetimeObjectHandsOutModulesAndRefusesASecondRegistration) {
    const auto lifetime = detail::GetModuleLifetimeObject();
    const auto module = get_module();
    EXPECT_EQ(lifetime->GetModule([] { return detail::CreateModule(); }), module);
    EXPECT_FALSE(lifetime->IsModuleUsed());
    try {
        lifetime->RegisterModule(module.get());
        FAIL();
    } catch (const exceptions::fatal& refusal) {
        EXPECT_STREQ(refusal.what(), "Module is being registered for the second time");
    }
}

} // namespace
} // namespace zel::event_routing
