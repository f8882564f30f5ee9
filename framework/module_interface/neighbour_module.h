// A module of a neighbouring library, reached through the loader on first use.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"
#include "framework/module_interface/loader.h"
#include "framework/module_interface/module_lifetime.h"
#include "framework/module_interface/version_check.h"

#include <memory>

namespace zel::mi {

/// The library's name and the decorated names of its two exports.
struct neighbour_names {
    const char* library;
    const char* create_module;
    const char* lifetime_object;
};

/// Loads the library and checks its module when made; gives the library back when
/// it ends. Holds the module weakly: the neighbour may end before its users.
template <class Interface>
class neighbour_module {
public:
    explicit neighbour_module(const neighbour_names& names)
        : image_(loader().load_dll(names.library, implementation_address())) {
        try {
            announce_this_image(); // so that this object gets its end
            using create_function = std::shared_ptr<Interface> (*)();
            using lifetime_function = std::shared_ptr<IModuleLifetime> (*)();
            const auto create =
                reinterpret_cast<create_function>(required_symbol(image_, names.create_module));
            const auto lifetime =
                reinterpret_cast<lifetime_function>(required_symbol(image_, names.lifetime_object));
            const auto module = std::static_pointer_cast<Interface>(lifetime()->GetModule(create));
            RequireInterface(*module);
            module_ = module;
        } catch (const std::exception&) {
            loader().free_dll(image_);
            throw;
        }
    }
    ~neighbour_module() {
        module_.reset(); // its bookkeeping is code of the neighbour
        loader().free_dll(image_);
    }
    neighbour_module(const neighbour_module&) = delete;
    neighbour_module& operator=(const neighbour_module&) = delete;

    /// Null when the neighbour has ended.
    std::shared_ptr<Interface> lock() const noexcept { return module_.lock(); }

private:
    platform::image_handle image_;
    std::weak_ptr<Interface> module_;
};

} // namespace zel::mi
