#include "platform/src/message_queue.h"

#include "platform/src/window_registry.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

#include <algorithm>
#include <gsl/util>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace zel::platform {

// A message on the stack of the thread that waits for its result.
class message_queue::sent_message {
public:
    sent_message(message_queue& sender, const message_call& what)
        : call(what), sender_(sender.shared_from_this()) {}

    /// The last thing that the handler does with the message, because the sender may then go
    /// on, and the message with it.
    void answer(std::optional<std::intptr_t> result) noexcept {
        const auto sender = sender_;
        bool wakes = false;
        {
            const scoped_lock inside(sender_->guard_);
            result_ = result;
            is_answered_ = true;
            wakes = sender_->ends_rest(rest::until_answer);
        }
        if (wakes)
            sender->awakened_.set();
    }

    /// True once it is answered; otherwise sleeps for a while, but not while there are
    /// messages sent to the sender.
    bool await_answer() noexcept {
        {
            const scoped_lock inside(sender_->guard_);
            if (is_answered_)
                return true;
            if (!sender_->sent_.empty())
                return false;
            sender_->rest_ = rest::until_answer;
        }
        sender_->awakened_.wait();
        return false;
    }

    std::optional<std::intptr_t> result() noexcept {
        const scoped_lock inside(sender_->guard_);
        return result_;
    }

    const message_call call;

private:
    const std::shared_ptr<message_queue> sender_;
    bool is_answered_ ZEL_GUARDED_BY(sender_->guard_) = false;
    std::optional<std::intptr_t> result_ ZEL_GUARDED_BY(sender_->guard_);
};

namespace {

// Initial-exec: one load, no call. Apart from the queue itself because they are read
// after its end, when other destructors of the thread still run.
[[gnu::tls_model("initial-exec")]] constinit thread_local message_queue* queue_of_thread = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool is_past_queue = false;

struct thread_watch {
    thread_watch() { queue_of_thread = queue.get(); }
    ~thread_watch() {
        queue->end();
        queue_of_thread = nullptr;
        is_past_queue = true;
    }
    thread_watch(const thread_watch&) = delete;
    thread_watch& operator=(const thread_watch&) = delete;

    const std::shared_ptr<message_queue> queue = std::make_shared<message_queue>();
};

} // namespace

message_queue& message_queue::of_this_thread() {
    if (queue_of_thread)
        return *queue_of_thread;
    if (is_past_queue)
        throw std::logic_error("The windows of this thread have ended already");
    thread_local const thread_watch watch;
    return *watch.queue;
}

message_queue* message_queue::current() noexcept {
    return queue_of_thread;
}

std::shared_ptr<message_queue> message_queue::to_wait_in() {
    return is_past_queue ? std::make_shared<message_queue>() : of_this_thread().shared_from_this();
}

// --- Windows -----------------------------------------------------------------

message_queue::window_state* message_queue::find(window_handle window) noexcept {
    const auto found = windows_.find(window);
    return found == windows_.end() ? nullptr : &found->second;
}

bool message_queue::is_open(window_handle window) noexcept {
    const window_state* const state = find(window);
    return state && !state->is_going;
}

bool message_queue::has_window(window_handle window) noexcept {
    const scoped_lock inside(guard_);
    return is_open(window);
}

void* message_queue::context(window_handle window) noexcept {
    const scoped_lock inside(guard_);
    const window_state* const state = find(window);
    return state ? state->context : nullptr;
}

window_procedure message_queue::replace_procedure(window_handle window,
                                                  window_procedure procedure) noexcept {
    const scoped_lock inside(guard_);
    window_state* const state = find(window);
    // Whoever puts a procedure in place will be told of the window's end.
    if (!state || (state->is_going && this != current()))
        return nullptr;
    return std::exchange(state->procedure, procedure);
}

void message_queue::add_window(window_handle window, window_procedure procedure, void* context) {
    const scoped_lock inside(guard_);
    if (has_ended_)
        throw std::logic_error("A thread that ends makes no windows");
    windows_.try_emplace(window, window_state{procedure, context});
}

bool message_queue::destroy_window(window_handle window) {
    {
        const scoped_lock inside(guard_);
        if (!is_open(window))
            return false;
        window_state& state = *find(window);
        state.is_going = state.is_told = true;
    }
    // Before the procedure runs: it may wait for a thread that waits for the window.
    refuse_sent(window);
    finish_window(window);
    return true;
}

void message_queue::finish_window(window_handle window) {
    const auto gone = gsl::finally([&] { remove_window(window); });
    call_window({window, destroy_message, 0, 0});
}

void message_queue::remove_window(window_handle window) noexcept {
    window_registry::remove(window);
    const scoped_lock inside(guard_);
    windows_.erase(window);
    std::erase_if(posted_, [&](const message_call& call) { return call.window == window; });
    show_state();
}

void message_queue::end() noexcept {
    const no_cancellation to_the_end;
    {
        const scoped_lock inside(guard_);
        has_ended_ = true;
        descriptor_.reset();
        for (auto& [window, state] : windows_)
            state.is_going = true;
    }
    refuse_sent(); // by all of them, as in destroy_window
    for (;;) {
        window_handle latest{};
        bool was_told = false; // its procedure is under way and has called exit()
        {
            const scoped_lock inside(guard_);
            if (windows_.empty())
                return;
            auto& [window, state] = *std::prev(windows_.end());
            latest = window;
            was_told = std::exchange(state.is_told, true);
        }
        const auto failure = guarded([&] {
            if (was_told)
                remove_window(latest);
            else
                finish_window(latest);
        });
        if (failure) {
            const auto address = reinterpret_cast<std::uintptr_t>(&failure);
            raise_exception(diagnostic::exception_report, {&address, 1});
        }
    }
}

// --- Handing over ------------------------------------------------------------

bool message_queue::ends_rest(rest least) noexcept {
    if (rest_ < least)
        return false;
    rest_ = rest::none;
    return true;
}

bool message_queue::post(const message_call& call) {
    bool wakes = false;
    {
        const scoped_lock inside(guard_);
        if (!is_open(call.window) || posted_.size() >= most_posted_messages)
            return false;
        posted_.push_back(call);
        show_state();
        wakes = ends_rest(rest::until_message);
    }
    if (wakes)
        awakened_.set();
    return true;
}

bool message_queue::take_in(sent_message& message) {
    bool wakes = false;
    {
        const scoped_lock inside(guard_);
        if (!is_open(message.call.window))
            return false;
        sent_.push_back(&message);
        show_state();
        wakes = ends_rest(rest::until_answer);
    }
    if (wakes)
        awakened_.set();
    return true;
}

bool message_queue::take_back(const sent_message& message) noexcept {
    const scoped_lock inside(guard_);
    const bool was_there = std::erase(sent_, &message) > 0;
    show_state();
    return was_there;
}

std::optional<std::intptr_t> message_queue::send(message_queue& target, const message_call& call) {
    sent_message message(*this, call);
    if (!target.take_in(message))
        return std::nullopt;
    bool is_answered = false;
    // Nobody may find the message, nor what it points to, once its sender has left.
    const auto over = gsl::finally([&] {
        if (is_answered || target.take_back(message))
            return;
        while (!message.await_answer())
            refuse_sent();
    });
    while (!message.await_answer())
        dispatch_sent();
    is_answered = true;
    return message.result();
}

// --- Taking ------------------------------------------------------------------

message_queue::sent_message* message_queue::take_sent(window_handle window) noexcept {
    const scoped_lock inside(guard_);
    const auto first = std::find_if(sent_.begin(), sent_.end(), [&](const sent_message* message) {
        return window == window_handle::none || message->call.window == window;
    });
    if (first == sent_.end())
        return nullptr;
    sent_message* const taken = *first;
    sent_.erase(first);
    show_state();
    return taken;
}

void message_queue::refuse_sent(window_handle window) noexcept {
    while (sent_message* const message = take_sent(window))
        message->answer(std::nullopt);
}

std::optional<std::intptr_t> message_queue::call_window(const message_call& call) {
    window_procedure procedure = nullptr;
    {
        const scoped_lock inside(guard_);
        if (const window_state* const state = find(call.window))
            procedure = state->procedure;
    }
    if (!procedure)
        return std::nullopt;
    return procedure(call.window, call.message, call.wparam, call.lparam);
}

// Dispatches as many as there are now. Threads that send without a pause must not keep the
// posted messages waiting for ever.
void message_queue::dispatch_sent() {
    for (std::size_t left = sent_count(); left > 0; --left) {
        sent_message* const message = take_sent();
        if (!message)
            return; // handled from inside another one
        std::optional<std::intptr_t> result;
        const auto handled = gsl::finally([&] { message->answer(result); });
        // The answer goes through a variable of its own. When the call is assigned to
        // `result` directly, GCC 12 at -O1 writes into `result` even if the call throws.
        const auto answer = call_window(message->call);
        result = answer;
    }
}

bool message_queue::dispatch_posted() {
    message_call call{};
    {
        const scoped_lock inside(guard_);
        if (posted_.empty())
            return false;
        call = posted_.front();
        posted_.pop_front();
        show_state();
    }
    call_window(call);
    return true;
}

std::optional<int> message_queue::dispatch() {
    for (std::size_t left = posted_count();; --left) {
        dispatch_sent();
        if (const auto exit_code = take_quit())
            return exit_code;
        if (left == 0 || !dispatch_posted())
            return std::nullopt;
    }
}

int message_queue::run() {
    for (;;) {
        dispatch_sent();
        if (const auto exit_code = take_quit())
            return *exit_code;
        if (!dispatch_posted())
            wait_for_messages();
    }
}

void message_queue::wait_for_messages() noexcept {
    {
        const scoped_lock inside(guard_);
        if (has_messages())
            return;
        rest_ = rest::until_message;
    }
    awakened_.wait();
}

void message_queue::quit(int exit_code) noexcept {
    const scoped_lock inside(guard_);
    quit_ = exit_code;
    show_state();
}

std::optional<int> message_queue::take_quit() noexcept {
    const scoped_lock inside(guard_);
    const auto exit_code = std::exchange(quit_, std::nullopt);
    show_state();
    return exit_code;
}

int message_queue::descriptor() {
    const scoped_lock inside(guard_);
    if (!descriptor_)
        descriptor_.emplace();
    show_state();
    return descriptor_->number();
}

std::size_t message_queue::posted_count() noexcept {
    const scoped_lock inside(guard_);
    return posted_.size();
}

std::size_t message_queue::sent_count() noexcept {
    const scoped_lock inside(guard_);
    return sent_.size();
}

bool message_queue::has_messages() const noexcept {
    return !sent_.empty() || !posted_.empty() || quit_;
}

void message_queue::show_state() noexcept {
    if (descriptor_)
        descriptor_->show(has_messages());
}

} // namespace zel::platform
