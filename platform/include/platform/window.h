// Windows: places to which any thread hands messages that one thread handles.
//
// A window belongs to the thread that made it. Its procedure runs on that thread
// only, and only while the thread takes messages: in `run_message_loop`, in
// `dispatch_messages`, or while it waits in `send_message` itself.
//
//     std::intptr_t greet(window_handle window, window_message message, std::uintptr_t wparam,
//                         std::intptr_t lparam) {
//         if (message != first_own_message)
//             return default_window_procedure(window, message, wparam, lparam);
//         std::puts("hello");
//         return 1;
//     }
//
//     const window_handle window = create_window(&greet);
//     post_message(window, first_own_message); // from any thread: queued
//     send_message(window, first_own_message); // from any thread: waits, gives 1
//     return run_message_loop();               // until quit_message comes
//
// What a procedure throws leaves the function that dispatched the message, with all
// other messages still queued; whoever has sent the message gets no result. The same
// holds for the unwinding of a thread that is cancelled or exits.
//
// Two threads that send to each other do not block each other: a thread that waits
// goes on with messages sent to its windows. Posted ones stay queued meanwhile.
//
// A handle is not used again. Every function takes a handle whose window is gone, and
// says so by its result. No wait is a cancellation point.
#pragma once

#include <platform/export.h>
#include <platform/thread_id.h>
#include <platform/window_handle.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zel::platform {

using window_message = std::uint32_t;

/// The last message that a window gets, while it is being destroyed.
inline constexpr window_message destroy_message = 2;
/// Ends the loop of the window's thread, with wparam as the result, when it reaches the
/// default procedure.
inline constexpr window_message quit_message = 0x12;
/// Programs choose their own messages from here on, below the registered ones.
inline constexpr window_message first_own_message = 0x400;
inline constexpr window_message first_registered_message = 0xC000;
inline constexpr window_message last_registered_message = 0xFFFF;

/// The posted messages that one thread's queue holds.
inline constexpr std::size_t most_posted_messages = 10'000;

/// A procedure that was put in front of another calls that one for what it does not know.
using window_procedure = std::intptr_t (*)(window_handle window, window_message message,
                                           std::uintptr_t wparam, std::intptr_t lparam);

/// Ends the loop for quit_message and does nothing for other messages. Returns 0.
ZEL_EXPORT std::intptr_t default_window_procedure(window_handle window, window_message message,
                                                  std::uintptr_t wparam, std::intptr_t lparam);

/// A window of the calling thread. It is destroyed when the thread ends, if not
/// before. Throws std::logic_error on a thread that is past its windows.
ZEL_EXPORT window_handle create_window(window_procedure procedure = &default_window_procedure,
                                       void* context = nullptr);

/// Sends destroy_message; then the window is gone, even if the procedure throws.
/// Its posted messages are dropped. From the beginning on, posting to it fails, and
/// so does sending from other threads, those who wait already included. False, and
/// nothing happens, for a window of another thread and for one that is being
/// destroyed.
ZEL_EXPORT bool destroy_window(window_handle window);

/// The owner; no_thread when there is no such window or it is being destroyed.
ZEL_EXPORT thread_id window_thread(window_handle window) noexcept;

/// Also while the window is being destroyed.
ZEL_EXPORT bool window_exists(window_handle window) noexcept;

/// What `create_window` was given; null when there is no such window.
ZEL_EXPORT void* window_context(window_handle window) noexcept;

/// Puts another procedure in place and returns the previous one, from any thread.
/// Null, and nothing changes, when there is no such window; while it is being
/// destroyed its own thread alone may do this. A null procedure is refused likewise.
ZEL_EXPORT window_procedure replace_window_procedure(window_handle window,
                                                     window_procedure procedure) noexcept;

/// Queues a message. Messages that one thread posts come in their order. False when
/// there is no such window, its thread's queue is full or there is no memory.
ZEL_EXPORT bool post_message(window_handle window, window_message message,
                             std::uintptr_t wparam = 0, std::intptr_t lparam = 0);

/// Has the message handled and returns the result: at once on the window's own
/// thread, otherwise when that thread takes it, before any posted one. Nothing when
/// there is no such window, when it goes meanwhile, or when its procedure throws.
/// A thread that is unwound out of the wait takes its message back, or waits for its
/// end while messages sent to itself fail.
ZEL_EXPORT std::optional<std::intptr_t> send_message(window_handle window, window_message message,
                                                     std::uintptr_t wparam = 0,
                                                     std::intptr_t lparam = 0);

/// The number that stands for a text, the same in the whole process. 0 for an empty
/// text and when all numbers are taken.
ZEL_EXPORT window_message register_window_message(std::string_view text);

/// Takes messages of the calling thread's windows until the loop is ended.
ZEL_EXPORT int run_message_loop();

/// Ends the loop of the calling thread after the message that is being handled; if no loop
/// runs, the next one ends as soon as it begins. Sent messages that are there are still handled,
/// posted ones stay queued.
ZEL_EXPORT void quit_message_loop(int exit_code);

/// For loops of others: handles what is there and does not wait. Messages that come
/// meanwhile are left for the next call. Returns the exit code once the loop is to end.
ZEL_EXPORT std::optional<int> dispatch_messages();

/// A file descriptor that is readable exactly while `dispatch_messages` of the calling
/// thread has something to do. It is there to be waited for: do not read, write or close
/// it. It lives as long as the thread. Throws std::system_error.
ZEL_EXPORT int message_descriptor();

} // namespace zel::platform
