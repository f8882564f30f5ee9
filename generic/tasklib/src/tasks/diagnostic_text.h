// Telling the diagnostic observers a text.
#pragma once

#include <platform/diagnostics.h>

#include <array>
#include <string_view>

namespace zel::tasklib {

inline void raise_text_report(std::string_view text) noexcept {
    const std::array<std::uintptr_t, 2> arguments = {text.size(),
                                                     reinterpret_cast<std::uintptr_t>(text.data())};
    platform::raise_exception(platform::diagnostic::text_report, arguments);
}

} // namespace zel::tasklib
