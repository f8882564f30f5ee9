#include "platform/src/ready_descriptor.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace zel::platform {

ready_descriptor::ready_descriptor() : number_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (number_ < 0)
        throw std::system_error(errno, std::generic_category(),
                                "No file descriptor for the messages of a thread");
}

ready_descriptor::~ready_descriptor() {
    close(number_);
}

// The raw calls, unlike the C library's, are no cancellation points.
void ready_descriptor::show(bool is_ready) noexcept {
    if (is_ready == shown_)
        return;
    shown_ = is_ready;
    std::uint64_t count = 1;
    syscall(is_ready ? SYS_write : SYS_read, number_, &count, sizeof count);
}

} // namespace zel::platform
