#include "tools/inspect/output.h"

#include <platform/process.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace inspect {

namespace {

std::FILE* output = stdout;

} // namespace

void take_output() {
    output = zel::platform::take_standard_output();
}

bool is_for_a_person() {
    return zel::platform::is_terminal(output);
}

void print(const std::string& text) {
    errno = 0;
    const bool whole = std::fwrite(text.data(), 1, text.size(), output) == text.size();
    if (!whole || std::fflush(output) != 0)
        throw std::system_error(errno, std::generic_category(), "The output cannot be written");
}

} // namespace inspect
