// A module of a neighbouring library, reached through the loader on first use.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"
#include "framework/module_interface/loader.h"
#include "framework/module_interface/module_lifetime.h"
#include "framework/module_interface/version_check.h"

#include <platform/diagnostics.h>

#include <memory>
#include <string>
#include <utility>

namespace zel::mi {

/// The library's name and the decorated names of its two exports.
struct neighbour_names {
    const char* library;
    const char* create_module;
    const char* lifetime_object;
};

/// One reference to a library, taken and given back through the loader.
class loaded_library {
public:
    explicit loaded_library(const std::string& library) : image_(load(library)) {}
    /// Tells the diagnostic observers when the library had to stay, and why.
    ~loaded_library() {
        platform::guarded([&] {
            const auto image = image_;
            if (image == platform::image_handle::none)
                return;
            std::string path; // without it the library is given back all the same
            platform::guarded([&] { path = platform::image_path(image); });
            if (give_back() == library_state::kept)
                report_kept_library(image, path);
        });
    }
    loaded_library(const loaded_library&) = delete;
    loaded_library& operator=(const loaded_library&) = delete;

    /// Of the library; `none` once it was given back.
    platform::image_handle image() const noexcept { return image_; }

    /// Gives the reference back before the object goes, once, and returns what became of
    /// the library. Nothing of it may be used afterwards.
    library_state give_back() {
        return loader().give_back(std::exchange(image_, platform::image_handle::none));
    }

    template <class Function>
    Function* function(const char* symbol) const {
        return reinterpret_cast<Function*>(required_symbol(image_, symbol));
    }

private:
    static platform::image_handle load(const std::string& library) {
        // First, so that what is loaded will be given back.
        announce_this_image();
        return loader().load_dll(library, implementation_address());
    }

    platform::image_handle image_;
};

/// Loads the library and checks its module when made; gives the library back when
/// it ends. Holds the module weakly: the neighbour may end before its users.
template <class Interface>
class neighbour_module {
public:
    explicit neighbour_module(const neighbour_names& names) : library_(names.library) {
        const auto module = obtain(names);
        RequireInterface(*module);
        module_ = module;
    }

    /// Null when the neighbour has ended.
    std::shared_ptr<Interface> lock() const noexcept { return module_.lock(); }

    /// Whether somebody besides the neighbour itself holds one of its objects.
    bool is_used() const { return lifetime_->IsModuleUsed(); }

protected:
    /// For the end of those that leave the library loaded while its objects are in use.
    void refuse_while_used() const {
        if (is_used())
            throw exceptions::fatal("Attempt to unload a module which is still used by another");
    }

private:
    std::shared_ptr<Interface> obtain(const neighbour_names& names) {
        const auto create = library_.function<std::shared_ptr<Interface>()>(names.create_module);
        const auto get_lifetime =
            library_.function<std::shared_ptr<IModuleLifetime>()>(names.lifetime_object);
        std::shared_ptr<Interface> module;
        std::string reason = "it gave no module";
        // An exception of the neighbour is code of the neighbour: only its text
        // may outlive the library.
        if (const auto failure = platform::guarded([&] {
                lifetime_ = get_lifetime();
                module = std::static_pointer_cast<Interface>(lifetime_->GetModule(create));
            }))
            reason = exceptions::brief_text(failure);
        if (!module)
            throw exceptions::error("The library " + std::string(names.library) +
                                    " could not be used: " + reason);
        return module;
    }

    loaded_library library_; // outlives what is below, whose code is in it
    std::shared_ptr<IModuleLifetime> lifetime_;
    std::weak_ptr<Interface> module_;
};

/// The module behind a singleton of a neighbour_module. Throws a `Failure` with the text
/// when either of them has ended, and to everybody what kept the singleton from being made.
template <class Failure, class Singleton>
auto require_module(Singleton& neighbour, const char* text) {
    try {
        if (auto module = neighbour.read([](const auto& n) { return n.lock(); }))
            return module;
    } catch (const lifetime::object_already_destroyed&) {
    }
    throw Failure(text);
}

} // namespace zel::mi
