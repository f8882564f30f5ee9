#include "framework/module_interface/module_lifetime.h"

#include <gtest/gtest.h>

namespace {

using namespace zel;

struct some_module final : mi::IModule {
    const mi::LibraryDescriptor& GetLibraryDescriptor() const override { return descriptor; }
    mi::LibraryDescriptor descriptor;
};

TEST(ModuleLifetime, RefusesEveryModuleTheSecondTime) {
    const some_module first, second;
    mi::ResidentLifetime lifetime;
    lifetime.RegisterModule(&first);
    lifetime.RegisterModule(&second);
    EXPECT_THROW(lifetime.RegisterModule(&first), exceptions::fatal);
    EXPECT_THROW(lifetime.RegisterModule(&second), exceptions::fatal);
}

} // namespace
