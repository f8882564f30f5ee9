// What a thread is doing, as a text: for debuggers, profilers and reports.
//
// The full text is kept in this layer and is right at once. The thread's name in the
// system has only as much of it as fits, and setting it costs a system call. So that name
// follows later, when the descriptions are published: a text that stands for an instant
// only never becomes a name. A thread without a text has the name it had by itself.
#pragma once

#include <platform/export.h>
#include <platform/thread_id.h>

#include <string>

namespace zel::platform {

/// The text of a thread of this process; empty when it has none.
ZEL_EXPORT std::string thread_description(thread_id thread);

/// Gives the calling thread a text and returns the one before. The name in the system
/// follows with the second `publish_thread_descriptions` from now, if the text still
/// stands then.
ZEL_EXPORT std::string replace_thread_description(std::string text);

/// Gives the calling thread a text back. The name in the system is right when the call
/// returns, which costs a system call only if the name has followed another text meanwhile.
ZEL_EXPORT void restore_thread_description(std::string text) noexcept;

/// Brings the system's names up to date for all threads whose text has not changed
/// since the last call. True when another call is needed for the others.
ZEL_EXPORT bool publish_thread_descriptions() noexcept;

} // namespace zel::platform
