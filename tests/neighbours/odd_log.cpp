// A log library built for another version of its interface, or one that cannot make its
// module. That exception and all its code are of this library, which is unloaded before
// anybody reads of it.
#include "framework/exceptions/exceptions.h"
#include "framework/log/log_module.h"
#include "framework/module_interface/module_lifetime.h"

#include <cstdlib>

namespace zel::log::detail {

namespace {

struct own_error final : exceptions::error {
    own_error() : error("The log has no paper.") {}
};

struct wrong_log final : ILogModule {
    std::int32_t GetInterfaceVersion() const override { return 2; }
    int LowestSeverity() const noexcept override { std::abort(); }
    void Write(const record&) override { std::abort(); }
    std::shared_ptr<InterfaceBase> AddSink(std::shared_ptr<ILogSink>, int) override {
        std::abort();
    }
    void SetDefaultSinkSeverity(int) override { std::abort(); }
};

} // namespace

ZEL_EXPORT std::shared_ptr<ILogModule> CreateLogModule() {
    if (std::getenv("NO_PAPER"))
        throw own_error();
    return std::make_shared<wrong_log>();
}

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<mi::ResidentLifetime>();
}

} // namespace zel::log::detail
