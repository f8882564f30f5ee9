#include <platform/interrupt.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace zel::platform {

namespace {

std::atomic<bool> is_there{false}; // relaxed: only refuses a second object

bool is_ignored(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN; // started in the background, perhaps by nohup
}

} // namespace

// The signals are blocked, in threads that are started later too, and read by a thread of
// its own: no handler interrupts anybody, and no call of another thread ends early.
class interrupt_watch::implementation {
public:
    implementation() {
        if (is_there.exchange(true, std::memory_order_relaxed))
            throw std::logic_error("The process is watched for interrupts already");
        sigemptyset(&signals_);
        for (const int signal : {SIGINT, SIGTERM})
            if (!is_ignored(signal))
                sigaddset(&signals_, signal);
        pthread_sigmask(SIG_BLOCK, &signals_, &former_mask_);
        requests_ = signalfd(-1, &signals_, SFD_CLOEXEC);
        end_ = eventfd(0, EFD_CLOEXEC);
        try {
            if (requests_ < 0 || end_ < 0)
                throw std::system_error(errno, std::generic_category(),
                                        "Interrupts cannot be watched");
            thread_ = std::thread([this] { wait_for_requests(); });
        } catch (...) {
            give_back();
            throw;
        }
    }

    ~implementation() {
        eventfd_write(end_, 1);
        thread_.join();
        give_back();
    }

    event requested{reset_mode::manual, false};
    std::atomic<int> first_signal{0}; // relaxed: carries nothing but itself

private:
    void wait_for_requests() noexcept {
        std::array<pollfd, 2> ready{{{end_, POLLIN, 0}, {requests_, POLLIN, 0}}};
        for (;;) {
            poll(ready.data(), ready.size(), -1);
            if (ready[0].revents != 0)
                return;
            signalfd_siginfo request{};
            if (ready[1].revents != 0 && read(requests_, &request, sizeof request) > 0)
                take(static_cast<int>(request.ssi_signo));
        }
    }

    void take(int signal) noexcept {
        int none = 0;
        if (first_signal.compare_exchange_strong(none, signal, std::memory_order_relaxed)) {
            requested.set();
            return;
        }
        std::signal(signal, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
        std::raise(signal); // ends the process
    }

    void give_back() noexcept {
        for (const int descriptor : {requests_, end_})
            if (descriptor >= 0)
                close(descriptor);
        pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
        is_there.store(false, std::memory_order_relaxed);
    }

    sigset_t signals_{};
    sigset_t former_mask_{};
    int requests_ = -1;
    int end_ = -1;
    std::thread thread_;
};

interrupt_watch::interrupt_watch() : implementation_(std::make_unique<implementation>()) {}
interrupt_watch::~interrupt_watch() = default;

event& interrupt_watch::requested() noexcept {
    return implementation_->requested;
}

std::optional<int> interrupt_watch::exit_code() const noexcept {
    const int signal = implementation_->first_signal.load(std::memory_order_relaxed);
    return signal != 0 ? std::optional(128 + signal) : std::nullopt; // as shells show it
}

} // namespace zel::platform
