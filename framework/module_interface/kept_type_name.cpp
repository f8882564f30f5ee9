#include "framework/module_interface/kept_type_name.h"

#include <platform/critical_section.h>

#include <algorithm>
#include <array>
#include <span>

namespace zel::detail {

namespace {

// Part of the library's own image, so that nothing has to be given back when it is
// unmapped, and other threads may use names to the very end.
constinit std::array<char, 32768> storage{};
constinit platform::plain_lock guard;
constinit std::size_t used ZEL_GUARDED_BY(guard) = 0;

} // namespace

std::string_view keep_text(const std::string& text) {
    char* place = nullptr;
    {
        platform::scoped_lock inside(guard);
        if (text.size() <= storage.size() - used) {
            place = storage.data() + used;
            used += text.size();
        }
    }
    if (!place)
        place = new char[text.size()];
    std::copy(text.begin(), text.end(), place);
    return {place, text.size()};
}

} // namespace zel::detail
