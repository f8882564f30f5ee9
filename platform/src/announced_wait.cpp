#include <platform/announced_wait.h>

namespace zel::platform {

namespace {

struct loan {
    thread_lender* lender = nullptr;
    bool waits = false;
};
constinit thread_local loan mine;

} // namespace

void set_thread_lender(thread_lender* lender) noexcept {
    mine.lender = lender;
}

announced_wait::announced_wait() noexcept : told_(mine.waits ? nullptr : mine.lender) {
    if (!told_)
        return;
    mine.waits = true;
    told_->wait_begins();
}

announced_wait::~announced_wait() {
    if (!told_)
        return;
    told_->wait_ends();
    mine.waits = false;
}

} // namespace zel::platform
