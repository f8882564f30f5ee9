#include <platform/crash_report.h>

#include <platform/library_image.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <execinfo.h>
#include <link.h>
#include <string_view>
#include <unistd.h>

namespace zel::platform {

namespace {

constexpr std::array crashes{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// Written before the first handler is installed, and only read afterwards.
const char* name_of_program = "";
std::array<struct sigaction, crashes.size()> former;

// Nothing here may allocate or lock: the crash may have come from inside of either.
class message {
public:
    void add(std::string_view text) {
        for (const char c : text.substr(0, text_.size() - 1 - size_))
            text_[size_++] = static_cast<unsigned char>(c) < ' ' ? '?' : c;
    }

    void print() {
        text_[size_++] = '\n';
        [[maybe_unused]] const auto nobody_left_to_tell = write(STDERR_FILENO, text_.data(), size_);
    }

private:
    std::array<char, 4096> text_;
    std::size_t size_ = 0;
};

std::string_view file_of(image_handle image) {
    const char* const name = reinterpret_cast<const link_map*>(image)->l_name;
    return name && *name ? name : "the program";
}

void add_libraries(message& told) {
    std::array<void*, 100> frames;
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    const auto own = image_of(reinterpret_cast<const void*>(&report_crashes));
    const auto system = image_of(reinterpret_cast<const void*>(&raise));
    // This handler, then the system, which has called it or in which the crash has come.
    int frame = 0;
    while (frame < count && image_of(frames[frame]) == own)
        ++frame;
    while (frame < count && image_of(frames[frame]) == system)
        ++frame;
    auto previous = image_handle::none;
    for (bool is_first = true; frame < count; ++frame) {
        const auto image = image_of(frames[frame]);
        if (image == image_handle::none || image == previous || image == system)
            continue;
        told.add(is_first ? " in " : ", called by ");
        told.add(file_of(image));
        previous = image;
        is_first = false;
    }
}

void take_crash(int signal, siginfo_t* about, void*) {
    const int kept = errno;
    message told;
    told.add(name_of_program);
    told.add(": crashed (");
    told.add(sigdescr_np(signal));
    told.add(")");
    add_libraries(told);
    told.print();
    // Not before: another thread that crashes would end the process without a word.
    for (std::size_t i = 0; i < crashes.size(); ++i)
        sigaction(crashes[i], &former[i], nullptr);
    errno = kept;
    // An instruction that has failed is run again when this returns, and what was sent must be
    // sent again.
    if (about->si_code <= 0)
        raise(signal);
}

} // namespace

void report_crashes(const char* program) noexcept {
    name_of_program = program;
    // What walks the stack is loaded when it is first used.
    std::array<void*, 1> frame;
    backtrace(frame.data(), 1);

    alignas(64) static std::array<char, 65536> second_stack;
    const stack_t stack{second_stack.data(), 0, second_stack.size()};
    sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_sigaction = &take_crash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < crashes.size(); ++i)
        sigaction(crashes[i], nullptr, &former[i]);
    for (const int crash : crashes)
        sigaction(crash, &action, nullptr);
}

} // namespace zel::platform
