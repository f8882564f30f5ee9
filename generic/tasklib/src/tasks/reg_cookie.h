// Cookies whose release is any action.
#pragma once

#include <tasklib/keep_registered.h>

#include <functional>
#include <memory>

namespace zel::tasklib {

/// A cookie that runs the action once, when its last reference goes. What the
/// action throws is logged; the destruction goes on.
[[nodiscard]] std::shared_ptr<keep_registered> make_reg_cookie(std::function<void()> action);

} // namespace zel::tasklib
