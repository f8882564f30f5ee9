// What a call that fails says.
#pragma once

#include <exception>
#include <string>

namespace zel::test {

/// Nothing when the call succeeds.
template <class Call>
std::string failure_of(const Call& call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return {};
}

} // namespace zel::test
