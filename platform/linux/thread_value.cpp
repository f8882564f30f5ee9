#include <platform/critical_section.h>
#include <platform/thread_value.h>

#include <memory>
#include <new>
#include <pthread.h>
#include <utility>
#include <vector>

namespace zel::platform {

namespace {

struct entry {
    std::uint64_t number;
    void* value;
};
using entries = std::vector<entry>;

// The values of this thread; few, so they are searched. Null before the first and after
// the thread has told of them.
constinit thread_local entries* mine = nullptr;

} // namespace

struct thread_value::registry {
    // Guards the list of those that live; held while one is told of a thread's end.
    static constinit plain_lock guard;
    static constinit thread_value* first ZEL_GUARDED_BY(guard);
    static constinit std::uint64_t last_number ZEL_GUARDED_BY(guard);

    static std::uint64_t next_number() noexcept {
        scoped_lock inside(guard);
        return ++last_number;
    }

    static thread_value* find(std::uint64_t number) noexcept ZEL_REQUIRES(guard) {
        auto* known = first;
        while (known && known->number_ != number)
            known = known->next_;
        return known;
    }

    static void thread_ends(void*) noexcept {
        // While this thread tells of its values, it has none.
        const std::unique_ptr<entries> ended(std::exchange(mine, nullptr));
        for (const entry& e : *ended) {
            scoped_lock inside(guard);
            if (const auto* owner = find(e.number))
                owner->at_thread_end_(owner->owner_, e.value);
        }
    }

    // Values of those that live no more are forgotten on this occasion.
    static void forget_old(entries& all) {
        scoped_lock inside(guard);
        std::erase_if(all, [](const entry& e) ZEL_REQUIRES(guard) { return !find(e.number); });
    }

    // Never deleted, like this library: its function may be called at any time.
    static pthread_key_t key() {
        static const pthread_key_t made = [] {
            pthread_key_t fresh{};
            if (pthread_key_create(&fresh, &thread_ends) != 0)
                throw std::bad_alloc();
            return fresh;
        }();
        return made;
    }
};

constinit plain_lock thread_value::registry::guard;
constinit thread_value* thread_value::registry::first = nullptr;
constinit std::uint64_t thread_value::registry::last_number = 0;

thread_value::thread_value(end_function at_thread_end, void* owner) noexcept
    : at_thread_end_(at_thread_end), owner_(owner), number_(registry::next_number()) {
    scoped_lock inside(registry::guard);
    next_ = std::exchange(registry::first, this);
}

thread_value::~thread_value() {
    scoped_lock inside(registry::guard);
    auto** link = &registry::first;
    while (*link != this)
        link = &(*link)->next_;
    *link = next_;
}

void* thread_value::get() const noexcept {
    if (mine)
        for (const entry& e : *mine)
            if (e.number == number_)
                return e.value;
    return nullptr;
}

void thread_value::set(void* value) {
    if (!mine) {
        auto made = std::make_unique<entries>();
        // Any pointer that is not null has the system call the function.
        if (pthread_setspecific(registry::key(), made.get()) != 0)
            throw std::bad_alloc();
        mine = made.release();
    }
    for (entry& e : *mine)
        if (e.number == number_) {
            e.value = value;
            return;
        }
    registry::forget_old(*mine);
    mine->push_back({number_, value});
}

} // namespace zel::platform
