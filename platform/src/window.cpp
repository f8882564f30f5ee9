#include "platform/src/window_registry.h"

#include <map>
#include <string>
#include <unordered_map>

namespace zel::platform {

namespace window_registry {

namespace {

struct registry {
    // Held for one look-up or change.
    plain_lock guard;
    std::unordered_map<window_handle, std::shared_ptr<message_queue>> queues ZEL_GUARDED_BY(guard);
    std::uintptr_t last ZEL_GUARDED_BY(guard) = 0;

    static registry& all() {
        // Never destroyed: windows end with their threads, which may be late.
        static auto* const instance = new registry;
        return *instance;
    }
};

} // namespace

window_handle add(std::shared_ptr<message_queue> queue) {
    registry& all = registry::all();
    const scoped_lock inside(all.guard);
    const window_handle window{all.last + 1};
    all.queues.emplace(window, std::move(queue));
    ++all.last;
    return window;
}

std::shared_ptr<message_queue> find(window_handle window) noexcept {
    registry& all = registry::all();
    const scoped_lock inside(all.guard);
    const auto found = all.queues.find(window);
    return found == all.queues.end() ? nullptr : found->second;
}

void remove(window_handle window) noexcept {
    registry& all = registry::all();
    std::shared_ptr<message_queue> released; // after the guard
    const scoped_lock inside(all.guard);
    if (const auto found = all.queues.find(window); found != all.queues.end()) {
        released = std::move(found->second);
        all.queues.erase(found);
    }
}

} // namespace window_registry

std::intptr_t default_window_procedure(window_handle, window_message message, std::uintptr_t wparam,
                                       std::intptr_t) {
    if (message == quit_message)
        quit_message_loop(static_cast<int>(wparam));
    return 0;
}

window_handle create_window(window_procedure procedure, void* context) {
    message_queue& queue = message_queue::of_this_thread();
    const window_handle window = window_registry::add(queue.shared_from_this());
    try {
        queue.add_window(window, procedure ? procedure : &default_window_procedure, context);
    } catch (...) {
        window_registry::remove(window);
        throw;
    }
    return window;
}

bool destroy_window(window_handle window) {
    const auto queue = window_registry::find(window);
    return queue && queue.get() == message_queue::current() && queue->destroy_window(window);
}

thread_id window_thread(window_handle window) noexcept {
    const auto queue = window_registry::find(window);
    return queue && queue->has_window(window) ? queue->owner() : no_thread;
}

bool window_exists(window_handle window) noexcept {
    return window_registry::find(window) != nullptr;
}

void* window_context(window_handle window) noexcept {
    const auto queue = window_registry::find(window);
    return queue ? queue->context(window) : nullptr;
}

window_procedure replace_window_procedure(window_handle window,
                                          window_procedure procedure) noexcept {
    const auto queue = procedure ? window_registry::find(window) : nullptr;
    return queue ? queue->replace_procedure(window, procedure) : nullptr;
}

bool post_message(window_handle window, window_message message, std::uintptr_t wparam,
                  std::intptr_t lparam) {
    const auto queue = window_registry::find(window);
    try {
        return queue && queue->post({window, message, wparam, lparam});
    } catch (const std::bad_alloc&) {
        return false;
    }
}

std::optional<std::intptr_t> send_message(window_handle window, window_message message,
                                          std::uintptr_t wparam, std::intptr_t lparam) {
    const auto target = window_registry::find(window);
    if (!target)
        return std::nullopt;
    const message_call call{window, message, wparam, lparam};
    if (target.get() == message_queue::current())
        return target->call_window(call);
    return message_queue::to_wait_in()->send(*target, call);
}

int run_message_loop() {
    return message_queue::of_this_thread().run();
}

void quit_message_loop(int exit_code) {
    message_queue::of_this_thread().quit(exit_code);
}

std::optional<int> dispatch_messages() {
    return message_queue::of_this_thread().dispatch();
}

int message_descriptor() {
    return message_queue::of_this_thread().descriptor();
}

// --- Registered messages -----------------------------------------------------

namespace {

struct registered_messages {
    // Held for one look-up.
    plain_lock guard;
    std::map<std::string, window_message, std::less<>> numbers ZEL_GUARDED_BY(guard);

    static registered_messages& all() {
        static auto* const instance = new registered_messages; // as good for late threads
        return *instance;
    }
};

} // namespace

window_message register_window_message(std::string_view text) {
    if (text.empty())
        return 0;
    registered_messages& all = registered_messages::all();
    const scoped_lock inside(all.guard);
    if (const auto known = all.numbers.find(text); known != all.numbers.end())
        return known->second;
    const auto number = first_registered_message + static_cast<window_message>(all.numbers.size());
    if (number > last_registered_message)
        return 0;
    all.numbers.emplace(text, number);
    return number;
}

} // namespace zel::platform
