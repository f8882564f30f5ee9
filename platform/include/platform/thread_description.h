// What a thread is doing, as a text: for debuggers, profilers and reports.
//
// The full text is kept in this layer and is right at once. The system's own name
// of the thread carries what fits of it, and costs a system call: it follows when
// the descriptions are published, so that a text that stands for an instant only
// costs none. A thread without a text has the name it had by itself.
#pragma once

#include <platform/export.h>
#include <platform/thread_id.h>

#include <string>

namespace zel::platform {

/// The text of a thread of this process; empty when it has none.
ZEL_EXPORT std::string thread_description(thread_id thread);

/// Gives the calling thread a text and returns the one before. The system's name
/// follows with the next but one `publish_thread_descriptions`.
ZEL_EXPORT std::string replace_thread_description(std::string text);

/// Gives the calling thread a text; its system name is right on return, which
/// costs a system call only where the name had followed a former text.
ZEL_EXPORT void restore_thread_description(std::string text) noexcept;

/// Brings the system's names up to date for all threads whose text has not changed
/// since the last call. True when another call is needed for the others.
ZEL_EXPORT bool publish_thread_descriptions() noexcept;

} // namespace zel::platform
