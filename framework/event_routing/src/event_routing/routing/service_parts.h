// What the services keep of one thread, found by the thread without a lock.
//
// A part belongs to a service and to a thread, and goes with the first of the two. Only its
// thread looks for it, so the table is written without regard to readers elsewhere; the end
// of a service, on another thread, merely marks a place, of which the words are atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace zel::event_routing::impl {

/// The base of parts.
class thread_part {
public:
    virtual ~thread_part() = default;
};

/// Of one thread. Everything but `find` is called under the guard of the thread records,
/// and `add` on the thread itself.
class service_parts {
public:
    service_parts() = default;
    ~service_parts() {
        for (auto& p : places_)
            delete p.part;
    }
    service_parts(const service_parts&) = delete;
    service_parts& operator=(const service_parts&) = delete;

    /// On the thread itself, by a service that lives. Null when it has none.
    thread_part* find(const void* service) const noexcept {
        for (std::size_t i = home_of(service);; i = next(i)) {
            const void* const found = places_[i].service.load(std::memory_order_relaxed);
            if (found == service)
                return places_[i].part;
            if (!found)
                return nullptr;
        }
    }

    /// Of a service that has none yet. Throws std::bad_alloc.
    void add(const void* service, std::unique_ptr<thread_part> part) {
        if (2 * (used_ + 1) > places_.size())
            rebuild();
        place& free = free_place(service);
        free.part = part.release();
        free.service.store(service, std::memory_order_relaxed);
        ++used_;
    }

    /// Destroys the part of a service that ends, if there is one.
    void drop(const void* service) noexcept {
        for (place& p : places_)
            if (p.service.load(std::memory_order_relaxed) == service) {
                p.service.store(&gone, std::memory_order_relaxed);
                delete std::exchange(p.part, nullptr);
            }
    }

private:
    struct place {
        // Null where nothing ever was, the address of `gone` where a service has ended.
        // Relaxed: what a thread finds it has put there itself, but for that mark.
        std::atomic<const void*> service{nullptr};
        thread_part* part = nullptr;
    };
    static constexpr char gone = 0;

    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (places_.size() - 1); }
    std::size_t home_of(const void* service) const noexcept {
        // The addresses of objects of one size differ above their lowest bits.
        return (reinterpret_cast<std::uintptr_t>(service) >> 6) & (places_.size() - 1);
    }
    place& free_place(const void* service) noexcept {
        std::size_t i = home_of(service);
        while (places_[i].part)
            i = next(i);
        return places_[i];
    }

    void rebuild() {
        std::size_t living = 0;
        for (const place& p : places_)
            living += p.part != nullptr;
        std::vector<place> fresh(living * 4 < places_.size() ? places_.size() : places_.size() * 2);
        fresh.swap(places_);
        for (place& p : fresh)
            if (p.part) {
                const void* const service = p.service.load(std::memory_order_relaxed);
                place& to = free_place(service);
                to.part = p.part;
                to.service.store(service, std::memory_order_relaxed);
            }
        used_ = living;
    }

    // A power of two, at most half of them used; those of ended services count as used
    // until the table is made anew.
    std::vector<place> places_ = std::vector<place>(4);
    std::size_t used_ = 0;
};

} // namespace zel::event_routing::impl
