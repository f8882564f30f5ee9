#include "examples/windows/word_counter.h"

#include <event_routing/window_work.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace zel::examples {

using namespace event_routing;

namespace {

std::size_t count_words(const std::string& text) {
    std::istringstream words(text);
    return static_cast<std::size_t>(std::distance(std::istream_iterator<std::string>(words), {}));
}

} // namespace

word_counter::word_counter()
    : events_(get_event_routing(*get_module())), window_(platform::create_window()),
      window_work_(get_in_wnd_proc_handling(*get_module(), window_)) {
    // Weak: the object keeps the handler, so the handler must not keep the object.
    auto count = [this, weak_work = std::weak_ptr(window_work_)](
                     const std::string&, const event_data&, const routing_parameters& about) {
        const std::string& line = about.at("text").text;
        const std::size_t words = count_words(line); // on a thread of the task library
        if (const auto work = weak_work.lock())
            post_to_window(*work, [this, line, words] { print(line, words); });
    };
    // Through the window's queue, so that results come in the order of the lines.
    registered_ = window_work_->KeepHandlerRegistered(events_->RegisterEventHandler(
        window_work_->GetTaskQueue(), "line.read", nullptr, count, "word counter"));
}

word_counter::~word_counter() {
    platform::destroy_window(window_);
}

bool word_counter::read_from(int descriptor) {
    std::array<char, 4096> some{};
    const auto size = read(descriptor, some.data(), some.size());
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return true; // nothing was read, but there may be more
    if (size < 0) {
        std::cerr << "The input cannot be read: " << std::strerror(errno) << '\n';
        exit_code_ = 1;
    }
    if (size <= 0) {
        if (!unfinished_.empty())
            take_line(std::exchange(unfinished_, {})); // the last line needs no newline
        has_ended_ = true;
        quit_when_done();
        return false;
    }
    unfinished_.append(some.data(), static_cast<std::size_t>(size));
    for (std::size_t end = 0; (end = unfinished_.find('\n')) != std::string::npos;) {
        take_line(unfinished_.substr(0, end));
        unfinished_.erase(0, end + 1);
    }
    return true;
}

void word_counter::take_line(const std::string& line) {
    ++to_print_;
    routing_parameters about;
    about["text"] = line;
    events_->BroadcastEvent("line.read", nullptr, about, nullptr);
}

void word_counter::print(const std::string& line, std::size_t words) {
    std::cout << words << " words: " << line << '\n';
    --to_print_;
    quit_when_done();
}

void word_counter::quit_when_done() const {
    if (has_ended_ && to_print_ == 0)
        platform::quit_message_loop(exit_code_);
}

} // namespace zel::examples
