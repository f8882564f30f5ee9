#include <platform/interrupt.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zel::platform {

namespace {

// All that a signal handler may touch. The event itself has a lock, which the interrupted
// thread may hold; so a thread of its own sets it.
std::atomic<int> first_signal{0}; // which came first; relaxed, it carries nothing but itself
std::atomic<int> wakeup{-1};      // written before the handler is installed
static_assert(std::atomic<int>::is_always_lock_free);

void on_signal(int signal) {
    const int error_of_the_interrupted = errno;
    int none = 0;
    if (first_signal.compare_exchange_strong(none, signal, std::memory_order_relaxed)) {
        eventfd_write(wakeup.load(std::memory_order_relaxed), 1);
    } else {
        // Comes when this function returns, and then ends the process.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    errno = error_of_the_interrupted;
}

} // namespace

class interrupt_watch::implementation {
public:
    implementation() : descriptor_(eventfd(0, EFD_CLOEXEC)) {
        if (descriptor_ < 0)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        int none = -1;
        if (!wakeup.compare_exchange_strong(none, descriptor_, std::memory_order_relaxed)) {
            close(descriptor_);
            throw std::logic_error("The process is watched for interrupts already");
        }
        first_signal.store(0, std::memory_order_relaxed);
        thread_ = std::thread([this] { pass_on(); });
        for (auto& [signal, former] : former_)
            install(signal, former);
    }

    ~implementation() {
        for (const auto& [signal, former] : former_)
            sigaction(signal, &former, nullptr);
        eventfd_write(descriptor_, 1);
        thread_.join();
        wakeup.store(-1, std::memory_order_relaxed);
        close(descriptor_);
    }

    event requested{reset_mode::manual, false};

private:
    void pass_on() noexcept {
        eventfd_t count = 0;
        while (eventfd_read(descriptor_, &count) < 0 && errno == EINTR) {
        }
        if (first_signal.load(std::memory_order_relaxed) != 0)
            requested.set();
    }

    static void install(int signal, struct sigaction& former) {
        sigaction(signal, nullptr, &former);
        if (former.sa_handler == SIG_IGN)
            return; // started in the background, perhaps by nohup
        struct sigaction action {};
        action.sa_handler = &on_signal;
        action.sa_flags = SA_RESTART; // reads and writes in progress go on
        sigaction(signal, &action, nullptr);
    }

    int descriptor_;
    std::thread thread_;
    std::array<std::pair<int, struct sigaction>, 2> former_{{{SIGINT, {}}, {SIGTERM, {}}}};
};

interrupt_watch::interrupt_watch() : implementation_(std::make_unique<implementation>()) {}
interrupt_watch::~interrupt_watch() = default;

event& interrupt_watch::requested() noexcept {
    return implementation_->requested;
}

std::optional<int> interrupt_watch::exit_code() const noexcept {
    const int signal = first_signal.load(std::memory_order_relaxed);
    return signal != 0 ? std::optional(128 + signal) : std::nullopt; // as shells show it
}

} // namespace zel::platform
