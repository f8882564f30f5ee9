// A log library built for another version of its interface.
#include "framework/log/log_module.h"
#include "framework/module_interface/module_lifetime.h"

namespace zel::log::detail {

namespace {

class wrong_log final : public ILogModule {
public:
    std::int32_t GetInterfaceVersion() const override { return 2; }
    const mi::LibraryDescriptor& GetLibraryDescriptor() const override { std::abort(); }
    int LowestSeverity() const noexcept override { std::abort(); }
    void Write(const record&) override { std::abort(); }
    std::shared_ptr<InterfaceBase> AddSink(std::shared_ptr<ILogSink>, int) override {
        std::abort();
    }
    void SetDefaultSinkSeverity(int) override { std::abort(); }
};

class wrong_lifetime final : public mi::ModuleLifetime {
    bool IsModuleUsed() const override { return false; }
};

} // namespace

ZEL_EXPORT std::shared_ptr<ILogModule> CreateLogModule() {
    static const auto instance = std::make_shared<wrong_log>();
    return instance;
}

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return std::make_shared<wrong_lifetime>();
}

} // namespace zel::log::detail
