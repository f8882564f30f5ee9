#include "framework/memory/block_stock.h"

#include "framework/lifetime/end_of_life.h"

#include <platform/thread_id.h>

#include <atomic>
#include <memory>
#include <utility>

namespace zel::memory {

namespace {

constexpr std::size_t step = 64; // bytes between one size and the next
constinit std::array<block_stock, 16> stocks;

class closing final : public lifetime::end_of_life_action {
public:
    closing() noexcept : end_of_life_action(lifetime::everything) {}
    void run() override {
        for (auto& stock : stocks)
            stock.close();
    }
};

// Relaxed: only the first counts.
constinit std::atomic<bool> will_close{false};

void see_to_closing() noexcept {
    if (will_close.load(std::memory_order_relaxed) ||
        will_close.exchange(true, std::memory_order_relaxed))
        return;
    if (std::unique_ptr<closing> action{new (std::nothrow) closing})
        lifetime::add_end_of_life_action(std::move(action));
}

// A use after release must be found, not hidden by the next use of the block.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool recycles = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool recycles = false;
#else
constexpr bool recycles = true;
#endif
#else
constexpr bool recycles = true;
#endif

} // namespace

block_stock* stock_for(std::size_t size) noexcept {
    const std::size_t index = (size - 1) / step;
    return recycles && index < stocks.size() ? &stocks[index] : nullptr;
}

std::size_t stocked_size(std::size_t size) noexcept {
    return (size + step - 1) / step * step;
}

block_stock::place& block_stock::own_place() noexcept {
    return places_[platform::this_thread_id() % places_.size()];
}

void* block_stock::take(std::size_t size) {
    place& own = own_place();
    {
        platform::scoped_lock inside(own.guard);
        if (!own.open) {
            own.open = own.full ? std::exchange(own.full, nullptr) : obtain_bundle();
            own.open_count = own.open ? bundle_size : 0;
        }
        if (own.open) {
            --own.open_count;
            return std::exchange(own.open, own.open->next);
        }
    }
    return ::operator new(size);
}

void block_stock::give_back(void* memory) noexcept {
    place& own = own_place();
    block* surplus = nullptr;
    {
        platform::scoped_lock inside(own.guard);
        if (own.closed) {
            ::operator delete(memory);
            return;
        }
        if (own.open_count == bundle_size) {
            if (own.full)
                surplus = exchange_bundle(own.full);
            own.full = std::exchange(own.open, nullptr);
            own.open_count = 0;
        }
        if (!own.open)
            see_to_closing();
        own.open = ::new (memory) block{own.open, nullptr};
        ++own.open_count;
    }
    release(surplus);
}

void block_stock::close() noexcept {
    for (place& p : places_) {
        platform::scoped_lock inside(p.guard);
        p.closed = true;
        release(std::exchange(p.open, nullptr));
        release(std::exchange(p.full, nullptr));
    }
    platform::scoped_lock inside(exchange_guard_);
    closed_ = true;
    while (bundles_)
        release(std::exchange(bundles_, bundles_->next_bundle));
}

void block_stock::release(block* first) noexcept {
    while (first)
        ::operator delete(std::exchange(first, first->next));
}

block_stock::block* block_stock::obtain_bundle() noexcept {
    platform::scoped_lock inside(exchange_guard_);
    if (!bundles_)
        return nullptr;
    --bundle_count_;
    return std::exchange(bundles_, bundles_->next_bundle);
}

block_stock::block* block_stock::exchange_bundle(block* bundle) noexcept {
    platform::scoped_lock inside(exchange_guard_);
    if (closed_ || bundle_count_ == most_bundles)
        return bundle;
    ++bundle_count_;
    bundle->next_bundle = std::exchange(bundles_, bundle);
    return nullptr;
}

} // namespace zel::memory
