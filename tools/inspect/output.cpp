#include "tools/inspect/output.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace inspect {

void print(const std::string& text) {
    errno = 0;
    const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!whole || std::fflush(stdout) != 0)
        throw std::system_error(errno, std::generic_category(), "The output cannot be written");
}

} // namespace inspect
