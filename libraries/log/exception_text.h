// How an exception reads in the log.
#pragma once

#include <exception>
#include <string>

namespace zel::log {

std::string exception_text(const std::exception_ptr& exception);

} // namespace zel::log
