#include <platform/cancellation.h>
#include <platform/process.h>
#include <platform/thread_id.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace zel::platform {

namespace {

// Initial-exec: one load, no call, and no destructor that would keep the
// library mapped. Zero is no thread's number and means "not asked yet".
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_id cached_thread = 0;

// Zero means "not asked yet". Relaxed: every thread would store the same value.
constinit std::atomic<std::uint32_t> cached_process{0};

void forget_identity() {
    cached_thread = 0;
    cached_process.store(0, std::memory_order_relaxed);
}

// A child of fork has new numbers but a copy of this memory.
[[maybe_unused]] const int fork_watch = pthread_atfork(nullptr, nullptr, &forget_identity);

[[gnu::noinline]] thread_id ask_thread() noexcept {
    cached_thread = static_cast<thread_id>(syscall(SYS_gettid));
    return cached_thread;
}

} // namespace

thread_id this_thread_id() noexcept {
    const thread_id known = cached_thread;
    return known != 0 ? known : ask_thread();
}

std::uint32_t process_id() noexcept {
    std::uint32_t known = cached_process.load(std::memory_order_relaxed);
    if (known == 0) {
        known = static_cast<std::uint32_t>(getpid());
        cached_process.store(known, std::memory_order_relaxed);
    }
    return known;
}

void sleep_for(milliseconds duration) noexcept {
    if (duration <= milliseconds::zero())
        return;
    const no_cancellation to_the_end; // callers are destructors too
    timespec left{duration.count() / 1000, (duration.count() % 1000) * 1'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

no_cancellation::no_cancellation() noexcept {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_);
}

no_cancellation::~no_cancellation() {
    pthread_setcancelstate(previous_, nullptr);
}

std::FILE* take_standard_output() {
    const auto failed = [](int reason) {
        return std::system_error(reason, std::generic_category(),
                                 "Standard output is not to be had");
    };
    std::fflush(stdout);
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own < 0)
        throw failed(errno);
    std::FILE* const stream = fdopen(own, "w");
    if (!stream || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        const int reason = errno; // which closing may change
        if (stream)
            std::fclose(stream);
        else
            close(own);
        throw failed(reason);
    }
    // Otherwise what is printed to something else than a terminal would appear at the end.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    return stream;
}

bool is_terminal(std::FILE* stream) noexcept {
    return isatty(fileno(stream)) == 1;
}

} // namespace zel::platform
