// A library's own lifetime object: how others obtain its module and learn
// whether it is still in use.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/interface.h"

#include <platform/critical_section.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>

namespace zel::mi {

class ZEL_EXPORT IModuleLifetime {
public:
    using creator = std::function<std::shared_ptr<IModule>()>;

    virtual ~IModuleLifetime() = default;
    /// Refused the second time for the same module.
    virtual void RegisterModule(const IModule* module) = 0;
    /// Calls the creator and returns its result.
    virtual std::shared_ptr<IModule> GetModule(const creator& create) = 0;
    /// Whether somebody besides the library itself holds one of its objects.
    virtual bool IsModuleUsed() const = 0;
};

/// What every library's lifetime object does; whether its module is used
/// elsewhere differs.
class ModuleLifetime : public IModuleLifetime {
public:
    void RegisterModule(const IModule* module) override {
        platform::scoped_lock inside(guard_);
        for (const IModule*& place : registered_) {
            if (place == module)
                throw exceptions::fatal("Module is being registered for the second time");
            if (!place) {
                place = module;
                return;
            }
        }
        throw exceptions::fatal("A library has no more than eight modules");
    }

    std::shared_ptr<IModule> GetModule(const creator& create) override { return create(); }

private:
    platform::plain_lock guard_; // guards the modules; held for a look
    // Null where there is none yet. Part of the object, because that is never destroyed.
    std::array<const IModule*, 8> registered_ ZEL_GUARDED_BY(guard_){};
};

/// Of a library that stays for the life of the process: everybody uses it.
class ResidentLifetime final : public ModuleLifetime {
public:
    bool IsModuleUsed() const override { return true; }
};

/// A library's lifetime object as its export hands it out. It is made once and
/// never destroyed, because it is asked for until the very end.
template <class Lifetime>
std::shared_ptr<IModuleLifetime> shared_lifetime() {
    alignas(Lifetime) static std::byte storage[sizeof(Lifetime)];
    static Lifetime* const instance = ::new (static_cast<void*>(storage)) Lifetime();
    return {std::shared_ptr<void>(), instance};
}

} // namespace zel::mi
