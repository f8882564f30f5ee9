#include "libraries/log/exception_text.h"

#include "framework/exceptions/exceptions.h"

#include <platform/library_image.h>

#include <fmt/format.h>

namespace zel::log {

std::string exception_text(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const exceptions::detail::base& e) {
        return fmt::format("{} (thrown at {} in {}, number {})", e.what(), e.address(),
                           platform::image_path(platform::image_of(e.address())), e.number());
    } catch (...) {
        return exceptions::brief_text(exception);
    }
}

} // namespace zel::log
