#include <platform/cancellation.h>
#include <platform/critical_section.h>
#include <platform/thread_description.h>

#include <array>
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

struct description {
    thread_id thread ZEL_GUARDED_BY(registry_guard) = no_thread;
    description* next ZEL_GUARDED_BY(registry_guard) = nullptr;
    description** link ZEL_GUARDED_BY(registry_guard) = nullptr; // what points at this one

    // Between the thread and those who look at it. Held while a name is written, so
    // that no name is older than the text that the thread has set meanwhile.
    plain_lock guard;
    std::string text ZEL_GUARDED_BY(guard);
    std::uint64_t changes ZEL_GUARDED_BY(guard) = 0;
    std::uint64_t changes_seen ZEL_GUARDED_BY(guard) = 0; // by the last publish
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

    void change(std::string& other) noexcept ZEL_REQUIRES(guard) {
        text.swap(other);
        ++changes;
    }

    bool shown() const noexcept ZEL_REQUIRES(guard) {
        return text.empty() ? !renamed : renamed && given == cut(text);
    }

    void show(const name_access& system) noexcept ZEL_REQUIRES(guard) {
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
};

constinit description* first_description ZEL_GUARDED_BY(registry_guard) = nullptr;

// Initial-exec: one load, no call. Apart from the description itself because they
// can be read after its end, when other destructors of the thread still run tasks.
[[gnu::tls_model("initial-exec")]] constinit thread_local description* current = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool ended = false;

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

// Null when the thread is past its descriptions; a text is dropped then.
[[gnu::noinline]] description* begin_description() noexcept {
    if (ended)
        return nullptr;
    thread_local description of_this_thread;
    return &of_this_thread;
}

description* description_for(const std::string& text) noexcept {
    return current || text.empty() ? current : begin_description();
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
        if (d->thread == thread) {
            const scoped_lock no_change(d->guard);
            return d->text;
        }
    }
    return {};
}

std::string replace_thread_description(std::string text) {
    description* const own = description_for(text);
    if (!own)
        return {};
    {
        const scoped_lock no_look(own->guard);
        own->change(text);
    }
    return text;
}

void restore_thread_description(std::string text) noexcept {
    description* const own = description_for(text);
    if (!own)
        return;
    const scoped_lock no_look(own->guard);
    own->change(text);
    if (own->renamed && !own->shown())
        own->show(name_access());
}

bool publish_thread_descriptions() noexcept {
    const no_cancellation to_the_end; // files are opened under locks
    bool again = false;
    const scoped_lock no_end(registry_guard);
    for (description* d = first_description; d; d = d->next) {
        const scoped_lock no_change(d->guard);
        const bool settled = std::exchange(d->changes_seen, d->changes) == d->changes;
        if (d->shown())
            continue;
        if (!settled)
            again = true;
        else if (d == current)
            d->show(name_access());
        else
            d->show(name_access(d->thread));
    }
    return again;
}

} // namespace zel::platform
