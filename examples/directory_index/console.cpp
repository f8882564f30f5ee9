#include "examples/directory_index/console.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace directory_index {

void print(const std::string& text) {
    errno = 0;
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw std::system_error(errno, std::generic_category(), "The report cannot be written");
}

void complain(const std::string& text) {
    std::fprintf(stderr, "directory_index: %s\n", text.c_str());
}

} // namespace directory_index
