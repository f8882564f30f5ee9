// A component with the library it lives in.
#pragma once

#include "examples/directory_index/component.h"

#include <framework/module_interface/neighbour_module.h>

#include <memory>
#include <string>

namespace directory_index {

class component_library {
public:
    /// Loads the library, from beside the program or where its own libraries lie, and has it
    /// make its component. Throws exceptions::error, which names the library.
    explicit component_library(const std::string& name);

private:
    zel::mi::loaded_library library_; // outlives the component, whose code is in it
    std::shared_ptr<void> component_;
};

} // namespace directory_index
