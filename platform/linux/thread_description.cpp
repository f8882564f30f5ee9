#include <platform/cancellation.h>
#include <platform/critical_section.h>
#include <platform/diagnostics.h>
#include <platform/process_barrier.h>
#include <platform/thread_description.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

namespace zel::platform {

namespace {

using system_name = std::array<char, 16>; // filled up with zeros, at least one

system_name cut(const std::string& text) noexcept {
    system_name name{};
    std::size_t size = strnlen(text.c_str(), name.size());
    if (size == name.size()) // no half characters
        for (--size; size > 0 && (text[size] & 0xC0) == 0x80;)
            --size;
    std::memcpy(name.data(), text.data(), size);
    return name;
}

// The way to a thread's name in the system: a file, except for the calling thread.
class name_access {
public:
    name_access() noexcept = default;
    explicit name_access(thread_id other) noexcept : self_(false) {
        std::array<char, 40> path{};
        std::snprintf(path.data(), path.size(), "/proc/self/task/%u/comm", other);
        file_ = open(path.data(), O_RDWR | O_CLOEXEC);
    }
    ~name_access() {
        if (file_ >= 0)
            close(file_);
    }
    name_access(const name_access&) = delete;
    name_access& operator=(const name_access&) = delete;

    bool read(system_name& name) const noexcept {
        if (self_)
            return prctl(PR_GET_NAME, name.data()) == 0;
        const ssize_t size = pread(file_, name.data(), name.size(), 0);
        if (size > 0)
            name[static_cast<std::size_t>(size) - 1] = '\0'; // was a line feed
        return size > 0;
    }

    bool write(const system_name& name) const noexcept {
        return self_ ? prctl(PR_SET_NAME, name.data()) == 0
                     : ::write(file_, name.data(), name.size()) > 0;
    }

private:
    bool self_ = true;
    int file_ = -1;
};

// Taken before a description's own lock. Whoever looks at another thread's
// description or name holds it, and a thread that ends waits for it: its number
// and its description are good until then.
constinit plain_lock registry_guard;

} // namespace

// The thread changes what it shows without a lock. Whoever looks from another thread says so
// first; an activity that ends meanwhile waits until the look is over:
//
//     the thread                              somebody who looks, under the guard
//     takes the activity out of `innermost`   sets `is_watched`
//     light_barrier()                         heavy_barrier()
//     is_watched: takes the guard             walks from `innermost` outwards
//
// At least one of the two sees the other.
struct description {
    thread_id thread ZEL_GUARDED_BY(registry_guard) = no_thread;
    description* next ZEL_GUARDED_BY(registry_guard) = nullptr;
    description** link ZEL_GUARDED_BY(registry_guard) = nullptr; // what points at this one

    // Written by the thread alone. Release, acquire: who finds an activity finds it made.
    std::atomic<const shown_activity*> innermost{nullptr};
    // How often it was written. Relaxed: a change that is missed is seen the next time.
    std::atomic<std::uint64_t> changes{0};
    // Whether the thread has to take the guard when an activity ends: because somebody looks,
    // or because the system shows what it did. Release, acquire: what was looked at goes
    // after the look; the barriers above do the rest.
    std::atomic<bool> is_watched{false};

    // Between the thread and those who look at it. Held while a name is written, so
    // that no name is older than the text that the thread has set meanwhile.
    plain_lock guard;
    std::uint64_t changes_seen ZEL_GUARDED_BY(guard) = 0;  // by the last publish
    std::uint64_t changes_shown ZEL_GUARDED_BY(guard) = 0; // when the name was last right
    // What we gave the system, and what stood there before; of no meaning while
    // the thread has its own name.
    bool renamed ZEL_GUARDED_BY(guard) = false;
    system_name given ZEL_GUARDED_BY(guard){};
    system_name own ZEL_GUARDED_BY(guard){};

    description() noexcept;
    ~description();
    description(const description&) = delete;
    description& operator=(const description&) = delete;

    void link_in() noexcept ZEL_REQUIRES(registry_guard);

    void change(const shown_activity* to) noexcept {
        innermost.store(to, std::memory_order_release);
        changes.store(changes.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    std::string text();
    static std::string text_of(const shown_activity* activity);

    bool shown(const std::string& text) const noexcept ZEL_REQUIRES(guard) {
        return text.empty() ? !renamed : renamed && given == cut(text);
    }

    void show(const std::string& text, const name_access& system) noexcept ZEL_REQUIRES(guard) {
        system_name now{};
        if (!system.read(now))
            return;
        // A name that is not from us is the thread's own, and stays with it.
        if (!renamed || now != given)
            own = now;
        const system_name wanted = text.empty() ? own : cut(text);
        if (wanted != now && !system.write(wanted))
            return;
        given = wanted;
        renamed = !text.empty();
    }

    class look;
    void settle() noexcept;
    bool publish() ZEL_REQUIRES(registry_guard);
};

namespace {

constinit description* first_description ZEL_GUARDED_BY(registry_guard) = nullptr;

// Initial-exec: one load, no call. Apart from the description itself because they
// can be read after its end, when other destructors of the thread still run tasks.
[[gnu::tls_model("initial-exec")]] constinit thread_local description* current = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool ended = false;

} // namespace

void description::link_in() noexcept {
    // Not the cached number: after a fork it may not have been forgotten yet.
    thread = static_cast<thread_id>(gettid());
    next = first_description;
    link = &first_description;
    if (next)
        next->link = &next;
    first_description = this;
}

description::description() noexcept {
    prepare_heavy_barrier();
    const scoped_lock no_walk(registry_guard);
    link_in();
    current = this;
}

description::~description() {
    const scoped_lock no_walk(registry_guard);
    *link = next;
    if (next)
        next->link = link;
    current = nullptr;
    ended = true;
}

std::string description::text_of(const shown_activity* activity) {
    if (!activity)
        return {};
    std::string text = text_of(activity->outer_);
    if (!text.empty())
        text += " - ";
    return text += activity->text_(activity->object_);
}

// As long as it lives, no activity of the thread goes. Stands under the guard.
class description::look {
public:
    explicit look(description& at) noexcept : at_(at) {
        if (&at_ == current)
            return; // and looks at itself
        at_.is_watched.store(true, std::memory_order_relaxed);
        heavy_barrier();
    }
    // Not known to the analysis: whoever looks holds the guard.
    ~look() ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        at_.is_watched.store(at_.renamed, std::memory_order_release);
    }
    look(const look&) = delete;
    look& operator=(const look&) = delete;

    std::string text() const { return text_of(at_.innermost.load(std::memory_order_acquire)); }

private:
    description& at_;
};

std::string description::text() {
    const scoped_lock no_change(guard);
    return look(*this).text();
}

// On the thread itself, when an activity has ended: waits for those who look, and gives the
// system the right name again where it has another one. Where memory is too short to make the
// text, the thread has its own name until the text is published.
void description::settle() noexcept {
    const scoped_lock no_change(guard);
    const look of_itself(*this);
    std::string now;
    guarded([&] { now = of_itself.text(); });
    if (renamed && !shown(now))
        show(now, name_access());
}

// True when another look is needed.
bool description::publish() {
    const scoped_lock no_change(guard);
    const std::uint64_t now = changes.load(std::memory_order_relaxed);
    const bool settled = std::exchange(changes_seen, now) == now;
    if (now == changes_shown || (!renamed && !innermost.load(std::memory_order_relaxed)))
        return false;
    if (!settled)
        return true;
    const look activities(*this);
    const std::string wanted = activities.text();
    if (!shown(wanted))
        show(wanted, this == current ? name_access() : name_access(thread));
    if (shown(wanted))
        changes_shown = now;
    return false;
}

namespace {

// Null when the thread is past its descriptions; an activity is not shown then.
[[gnu::noinline]] description* begin_description() noexcept {
    if (ended)
        return nullptr;
    thread_local description of_this_thread;
    return &of_this_thread;
}

// Across a fork nobody is in the middle of the registry, and so nobody but its
// thread inside a description. The child has one thread, with a new number.
void before_fork() noexcept ZEL_THREAD_ATTRIBUTE(acquire_capability(registry_guard)) {
    registry_guard.lock();
}

void after_fork() noexcept ZEL_THREAD_ATTRIBUTE(release_capability(registry_guard)) {
    registry_guard.unlock();
}

void after_fork_in_child() noexcept ZEL_THREAD_ATTRIBUTE(release_capability(registry_guard)) {
    first_description = nullptr;
    if (current)
        current->link_in();
    registry_guard.unlock();
}

[[maybe_unused]] const int fork_watch =
    pthread_atfork(&before_fork, &after_fork, &after_fork_in_child);

} // namespace

std::string thread_description(thread_id thread) {
    const scoped_lock no_end(registry_guard);
    for (description* d = first_description; d; d = d->next) {
        if (d->thread == thread)
            return d->text();
    }
    return {};
}

shown_activity::shown_activity(text_function text, const void* object) noexcept
    : text_(text), object_(object) {
    description* const own = current ? current : begin_description();
    if (!own)
        return;
    outer_ = own->innermost.load(std::memory_order_relaxed);
    is_shown_ = true;
    own->change(this);
}

void shown_activity::end() noexcept {
    description* const own = std::exchange(is_shown_, false) ? current : nullptr;
    if (!own)
        return;
    own->change(outer_);
    light_barrier();
    if (own->is_watched.load(std::memory_order_acquire))
        own->settle();
}

bool publish_thread_descriptions() noexcept {
    const no_cancellation to_the_end; // files are opened under locks
    bool again = false;
    const scoped_lock no_end(registry_guard);
    for (description* d = first_description; d; d = d->next)
        // One whose text cannot be made for want of memory is tried again.
        // The analysis does not see that the lambda is called here.
        if (guarded([&]() ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
                again = d->publish() || again;
            }))
            again = true;
    return again;
}

} // namespace zel::platform
