// What a backend supplies for the queue of messages: a file descriptor that others
// can wait for.
#pragma once

namespace zel::platform {

class ready_descriptor {
public:
    /// Throws std::system_error.
    ready_descriptor();
    ~ready_descriptor();
    ready_descriptor(const ready_descriptor&) = delete;
    ready_descriptor& operator=(const ready_descriptor&) = delete;

    int number() const noexcept { return number_; }

    /// Makes it readable or not; neither waits nor is a cancellation point.
    void show(bool is_ready) noexcept;

private:
    int number_;
    bool shown_ = false;
};

} // namespace zel::platform
