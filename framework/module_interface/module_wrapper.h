// What a library's module singleton holds: the module and its place in the
// process-wide end of life.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/lifetime/end_of_life.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/module_lifetime.h"

#include <memory>

namespace zel::mi {

/// `GetLifetime` gives the lifetime object of the library that this is part of.
template <class Implementation, class Interface, auto GetLifetime, exit_rank Rank>
class ModuleWrapper {
public:
    ModuleWrapper() {
        const auto lifetime = GetLifetime();
        module_ = std::make_shared<Implementation>();
        lifetime->RegisterModule(module_.get());
        const auto image = announce_this_image();
        registration_ = lifetime_service().RegisterUnloadCallback(image, &run_unload_actions, Rank);
    }

    const std::shared_ptr<Interface>& module() const noexcept { return module_; }

    /// Releases the module; refuses, and leaves everything alive, while somebody
    /// else holds it.
    void end() {
        if (module_.use_count() != 1)
            throw exceptions::fatal("Module being destroyed is still held somewhere else");
        registration_.reset();
        module_.reset();
    }

private:
    static void run_unload_actions() {
        lifetime::run_end_of_life_actions(lifetime::unload_threshold);
    }

    std::shared_ptr<Interface> module_;
    std::shared_ptr<unload_registration> registration_;
};

} // namespace zel::mi
