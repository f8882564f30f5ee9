// Telling whoever has lent a thread that the thread waits.
//
// The threads of a pool are as many as there are cores. One that sleeps in something
// that the pool does not know of (a socket, a latch, a lock of another library) is
// missed; announced, another one takes its place for as long:
//
//     const platform::announced_wait others_take_over;
//     answer = read_from(socket);
#pragma once

#include <platform/export.h>

namespace zel::platform {

/// Lends threads and wants to hear when one of them waits. Is called on that thread.
class ZEL_EXPORT thread_lender {
public:
    virtual void wait_begins() noexcept = 0;
    virtual void wait_ends() noexcept = 0;

protected:
    ~thread_lender() = default;
};

/// Who has lent the calling thread from now on; null for nobody.
ZEL_EXPORT void set_thread_lender(thread_lender* lender) noexcept;

/// For as long as it lives the calling thread waits. It costs two uncontended locks on a
/// lent thread, which may start another one, and next to nothing on others; it never
/// fails. Announced waits inside of one another count once. Should the thread compute
/// meanwhile, more threads run than there are cores.
class ZEL_EXPORT announced_wait {
public:
    announced_wait() noexcept;
    /// On the same thread.
    ~announced_wait();
    announced_wait(const announced_wait&) = delete;
    announced_wait& operator=(const announced_wait&) = delete;

private:
    thread_lender* told_; // null where nobody wants to hear, or has heard already
};

} // namespace zel::platform
