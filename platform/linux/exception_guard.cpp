#include <platform/diagnostics.h>

#include <cstdlib>
#include <cxxabi.h>

namespace zel::platform {

std::exception_ptr caught_exception() {
    // Nothing was thrown when a thread is being ended: its forced unwinding has no
    // exception object, and swallowing it would abort the process.
    auto thrown = std::current_exception();
    if (!thrown)
        throw;
    return thrown;
}

std::string readable_type_name(const char* compiler_name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(compiler_name, nullptr, nullptr, &status), &std::free);
    return status == 0 ? text.get() : compiler_name;
}

} // namespace zel::platform
