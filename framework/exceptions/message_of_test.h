// For tests of what a failure says.
#pragma once

#include <string>

namespace zel::exceptions {

/// The text of the exception that the call throws; one of another type passes.
template <class Exception>
std::string message_of(auto&& call) {
    try {
        call();
    } catch (const Exception& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

} // namespace zel::exceptions
