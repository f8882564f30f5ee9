#include <platform/image_use.h>

#include <platform/critical_section.h>
#include <platform/thread_id.h>
#include <platform/wait_on_address.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace zel::platform {

// Threads that make and end uses of an image at the same time must not pass one line to
// and fro, so each makes them in a place of its own, as a rule.
struct alignas(64) image_use::place {
    // Guards what is below, the links and the texts of the uses; held for a few
    // instructions, or while the uses are described.
    plain_lock guard;
    std::uint64_t made ZEL_GUARDED_BY(guard) = 0;
    std::uint64_t ended ZEL_GUARDED_BY(guard) = 0;
    image_use* first ZEL_GUARDED_BY(guard) = nullptr;
    image_uses* image = nullptr; // never changes
};

// The uses of one image. Never destroyed: a use ends in here when its image may be
// unmapped already.
struct image_uses {
    explicit image_uses(image_handle of, image_uses* next_in_row) noexcept
        : name(of), next(next_in_row) {
        for (auto& p : places)
            p.image = this;
    }

    image_use::place& own_place() noexcept { return places[this_thread_id() % places.size()]; }

    // Ends before makings: a use that is there all the time is never missed.
    std::size_t count() noexcept {
        std::uint64_t ended = 0;
        std::uint64_t made = 0;
        for (auto& p : places) {
            scoped_lock inside(p.guard);
            ended += p.ended;
        }
        for (auto& p : places) {
            scoped_lock inside(p.guard);
            made += p.made;
        }
        return made - ended;
    }

    void describe(std::vector<std::string>& lines, std::size_t most) {
        for (auto& p : places) {
            scoped_lock inside(p.guard);
            for (auto* use = p.first; use && lines.size() < most; use = use->next_)
                lines.push_back(text_of(*use));
        }
    }

    bool wait_until_unused(milliseconds timeout) noexcept;

    const image_handle name;
    image_uses* const next;
    std::array<image_use::place, 16> places;
    // Relaxed: whoever ends a use that a waiter has seen enters the guard of its place
    // after the waiter, and with that sees that somebody waits.
    std::atomic<std::uint32_t> waiting{0};
    // What the waiters sleep on: changes with each end that somebody waits for.
    std::atomic<std::uint32_t> changes{0};

private:
    static std::string text_of(const image_use& use) {
        std::string text = use.kind_;
        if (!use.name_.empty())
            text.append(" '").append(use.name_).append("'");
        if (!use.note_.empty())
            text.append(" (").append(use.note_).append(")");
        return text;
    }
};

bool image_uses::wait_until_unused(milliseconds timeout) noexcept {
    const auto deadline = deadline_after(timeout);
    waiting.fetch_add(1, std::memory_order_relaxed);
    bool is_unused = false;
    for (bool has_time = true;;) {
        // Acquire: an end after this look changes the word, and the sleep ends at once.
        const std::uint32_t seen = changes.load(std::memory_order_acquire);
        is_unused = count() == 0;
        if (is_unused || !has_time)
            break;
        has_time = wait_on_address(changes, seen, deadline);
    }
    waiting.fetch_sub(1, std::memory_order_relaxed);
    wake_one(changes); // one end wakes one waiter, which may not have been the only one
    return is_unused;
}

namespace {

// Which images have had uses. Rows grow at the front only, so they are read without a
// lock. The system names a new image as it named an old one sooner or later, so there
// are about as many as were ever mapped at once.
class image_registry {
public:
    constexpr image_registry() noexcept = default;

    image_uses* find(image_handle image) noexcept {
        // Acquire: who finds the uses finds them made.
        for (auto* i = row_of(image).load(std::memory_order_acquire); i; i = i->next)
            if (i->name == image)
                return i;
        return nullptr;
    }

    image_uses& find_or_add(image_handle image) {
        if (auto* const known = find(image))
            return *known;
        scoped_lock inside(guard_);
        if (auto* const known = find(image))
            return *known;
        auto& row = row_of(image);
        auto* const added = new image_uses(image, row.load(std::memory_order_relaxed));
        row.store(added, std::memory_order_release);
        return *added;
    }

private:
    std::atomic<image_uses*>& row_of(image_handle image) noexcept {
        // Names are addresses of blocks of memory.
        return rows_[(static_cast<std::uintptr_t>(image) >> 4) % rows_.size()];
    }

    std::array<std::atomic<image_uses*>, 64> rows_{};
    plain_lock guard_; // One thread at a time adds an image.
};

constinit image_registry images;

} // namespace

image_use::image_use(image_handle image, const char* kind, std::string_view name,
                     std::string_view note)
    : kind_(kind), name_(name), note_(note) {
    if (image == image_handle::none || is_program(image))
        return;
    place& own = images.find_or_add(image).own_place();
    scoped_lock inside(own.guard);
    place_ = &own;
    next_ = own.first;
    if (next_)
        next_->previous_ = this;
    own.first = this;
    ++own.made;
}

void image_use::end_counted() noexcept {
    place& own = *place_;
    place_ = nullptr;
    {
        scoped_lock inside(own.guard);
        (previous_ ? previous_->next_ : own.first) = next_;
        if (next_)
            next_->previous_ = previous_;
        ++own.ended;
    }
    // From here on the image may be gone; its uses stay.
    image_uses& image = *own.image;
    if (image.waiting.load(std::memory_order_relaxed) == 0)
        return;
    image.changes.fetch_add(1, std::memory_order_release);
    wake_one(image.changes);
}

std::size_t uses_of(image_handle image) noexcept {
    auto* const known = images.find(image);
    return known ? known->count() : 0;
}

std::vector<std::string> describe_uses(image_handle image, std::size_t most) {
    std::vector<std::string> lines;
    if (auto* const known = images.find(image))
        known->describe(lines, most);
    return lines;
}

bool wait_until_unused(image_handle image, milliseconds timeout) noexcept {
    auto* const known = images.find(image);
    return !known || known->wait_until_unused(timeout);
}

} // namespace zel::platform
