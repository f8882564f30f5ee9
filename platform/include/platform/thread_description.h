// What a thread is doing, as a text: for debuggers, profilers and reports.
//
// The full text is right at once, and made when somebody asks for it. The thread's name in
// the system has only as much of it as fits, and setting it costs a system call. So that name
// follows later, when the descriptions are published: a text that stands for an instant
// only never becomes a name. A thread without a text has the name it had by itself.
#pragma once

#include <platform/export.h>
#include <platform/thread_id.h>

#include <string>

namespace zel::platform {

struct description;

/// The text of a thread of this process; empty when it has none.
ZEL_EXPORT std::string thread_description(thread_id thread);

/// What the calling thread does, for as long as the object lives: on the stack, the inner ones
/// going first. The thread's text names all of them, from the outermost on, joined by " - ".
/// Costs a few instructions; the text is made when somebody looks.
class ZEL_EXPORT shown_activity {
public:
    /// What there is to say of an object. Called on any thread while the activity lives; may
    /// throw std::bad_alloc, and nothing else.
    using text_function = std::string (*)(const void* object);

    /// The name in the system follows with the second `publish_thread_descriptions` from now,
    /// if the text still stands then.
    shown_activity(text_function text, const void* object) noexcept;
    ~shown_activity() { end(); }
    shown_activity(const shown_activity&) = delete;
    shown_activity& operator=(const shown_activity&) = delete;

    /// Before the object goes; nothing happens the second time. Waits for those who are making
    /// the text. The name in the system is right when the call returns, which costs a system
    /// call only if the name has followed another text meanwhile.
    void end() noexcept;

private:
    friend struct description;

    const text_function text_;
    const void* const object_;
    const shown_activity* outer_ = nullptr;
    bool is_shown_ = false;
};

/// Brings the system's names up to date for all threads whose text has not changed
/// since the last call. True when another call is needed for the others.
ZEL_EXPORT bool publish_thread_descriptions() noexcept;

} // namespace zel::platform
