// The windows and messages of one thread.
//
// Other threads hold a reference to the queue while they hand something over, so it may
// outlive its thread; by then it has no windows and takes nothing on. No lock is held while
// a procedure runs, and the locks of two queues are never held at once.
#pragma once

#include "platform/src/ready_descriptor.h"

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/window.h>

#include <deque>
#include <map>
#include <memory>

namespace zel::platform {

struct message_call {
    window_handle window;
    window_message message;
    std::uintptr_t wparam;
    std::intptr_t lparam;
};

class message_queue : public std::enable_shared_from_this<message_queue> {
public:
    /// Made with its first use; throws std::logic_error on a thread that is past it.
    static message_queue& of_this_thread();
    /// Null while the calling thread has none.
    static message_queue* current() noexcept;
    /// The same for a thread that sends, which it may do to its very end.
    static std::shared_ptr<message_queue> to_wait_in();

    message_queue() noexcept : owner_(this_thread_id()) {}

    // --- Any thread ---

    thread_id owner() const noexcept { return owner_; }
    /// False for a window that is being destroyed.
    bool has_window(window_handle window) noexcept;
    void* context(window_handle window) noexcept;
    window_procedure replace_procedure(window_handle window, window_procedure procedure) noexcept;
    bool post(const message_call& call);

    // --- Its own thread ---

    void add_window(window_handle window, window_procedure procedure, void* context);
    bool destroy_window(window_handle window);
    /// Nothing when the window has gone.
    std::optional<std::intptr_t> call_window(const message_call& call);
    std::optional<std::intptr_t> send(message_queue& target, const message_call& call);
    std::optional<int> dispatch();
    int run();
    void quit(int exit_code) noexcept;
    int descriptor();
    /// The thread ends: destroys its windows, the latest first, and closes for good.
    void end() noexcept;

private:
    class sent_message;
    struct window_state {
        window_procedure procedure;
        void* context;
        bool is_going = false;
        bool is_told = false; // of its end, or about to be
    };
    enum class rest { none, until_answer, until_message }; // by how much ends them

    /// Makes place for a message on its sender's stack; false where `post` gives false.
    bool take_in(sent_message& message);
    /// False when it is being handled, or has been.
    bool take_back(const sent_message& message) noexcept;
    /// The first, of that window or of any; null when there is none.
    sent_message* take_sent(window_handle window = window_handle::none) noexcept;
    void refuse_sent(window_handle window = window_handle::none) noexcept;
    void dispatch_sent();
    bool dispatch_posted();
    /// Tells the window, which takes nothing any more, of its end.
    void finish_window(window_handle window);
    void remove_window(window_handle window) noexcept;
    std::size_t posted_count() noexcept;
    std::size_t sent_count() noexcept;
    std::optional<int> take_quit() noexcept;
    void wait_for_messages() noexcept;

    window_state* find(window_handle window) noexcept ZEL_REQUIRES(guard_);
    /// The same for those who hand something over.
    bool is_open(window_handle window) noexcept ZEL_REQUIRES(guard_);
    bool has_messages() const noexcept ZEL_REQUIRES(guard_);
    void show_state() noexcept ZEL_REQUIRES(guard_);
    /// True when the caller has to set `awakened_` once it has left the guard.
    bool ends_rest(rest least) noexcept ZEL_REQUIRES(guard_);

    const thread_id owner_;
    // Guards everything below. The descriptor is written with it held, so that it is
    // readable exactly while something waits; that happens twice per empty queue.
    plain_lock guard_;
    std::map<window_handle, window_state> windows_ ZEL_GUARDED_BY(guard_);
    std::deque<message_call> posted_ ZEL_GUARDED_BY(guard_);
    std::deque<sent_message*> sent_ ZEL_GUARDED_BY(guard_);
    std::optional<int> quit_ ZEL_GUARDED_BY(guard_);
    bool has_ended_ ZEL_GUARDED_BY(guard_) = false;
    std::optional<ready_descriptor> descriptor_ ZEL_GUARDED_BY(guard_);
    rest rest_ ZEL_GUARDED_BY(guard_) = rest::none; // what the thread sleeps for
    event awakened_{reset_mode::automatic, false};
};

} // namespace zel::platform
