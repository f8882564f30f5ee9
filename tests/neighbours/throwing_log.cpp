// A log library that cannot make its module. The exception and all its code are of
// this library, which is unloaded before anybody reads of it.
#include "framework/exceptions/exceptions.h"
#include "framework/log/log_module.h"
#include "framework/module_interface/module_lifetime.h"

namespace zel::log::detail {

namespace {

class own_error final : public exceptions::error {
public:
    own_error() : error("The log has no paper.") {}
};

} // namespace

ZEL_EXPORT std::shared_ptr<ILogModule> CreateLogModule() {
    throw own_error();
}

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<mi::ResidentLifetime>();
}

} // namespace zel::log::detail
