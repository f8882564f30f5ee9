// Tasks in the order of their arrival, in a circle of memory.
#pragma once

#include <tasklib/task_ifc.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace zel::tasklib {

/// Not synchronised. A ring that has become empty keeps its memory for the next tasks, but
/// not that of a great crowd.
class task_ring {
public:
    bool empty() const noexcept { return size_ == 0; }
    std::size_t size() const noexcept { return size_; }

    /// The n-th from the front. May be set to null, which stays in its place.
    std::shared_ptr<task_ifc>& operator[](std::size_t n) noexcept {
        return slots_[(begin_ + n) & (slots_.size() - 1)];
    }

    /// Throws std::bad_alloc, and then nothing has changed.
    void reserve(std::size_t size) {
        if (size > slots_.size())
            grow(size);
    }
    /// Throws as above.
    void push_back(std::shared_ptr<task_ifc> task) {
        reserve(size_ + 1);
        (*this)[size_++] = std::move(task);
    }

    std::shared_ptr<task_ifc> pop_front() noexcept {
        auto first = std::move((*this)[0]);
        ++begin_;
        if (--size_ == 0 && slots_.size() > crowd)
            slots_ = {};
        return first;
    }

    /// Closes the gaps that the nulls are.
    void drop_nulls() noexcept {
        std::size_t kept = 0;
        for (std::size_t n = 0; n < size_; ++n)
            if (auto& slot = (*this)[n])
                std::swap((*this)[kept++], slot);
        size_ = kept;
    }

    void swap(task_ring& other) noexcept {
        slots_.swap(other.slots_);
        std::swap(begin_, other.begin_);
        std::swap(size_, other.size_);
    }

private:
    static constexpr std::size_t fewest = 16;
    static constexpr std::size_t crowd = 4096;

    void grow(std::size_t least) {
        std::size_t room = std::max(fewest, slots_.size());
        while (room < least)
            room *= 2;
        std::vector<std::shared_ptr<task_ifc>> larger(room);
        for (std::size_t n = 0; n < size_; ++n)
            larger[n] = std::move((*this)[n]);
        slots_.swap(larger);
        begin_ = 0;
    }

    std::vector<std::shared_ptr<task_ifc>> slots_; // none, or a power of two of them
    std::size_t begin_ = 0;                        // counts on; the slot is what is left of it
    std::size_t size_ = 0;
};

} // namespace zel::tasklib
