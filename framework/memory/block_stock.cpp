#include "framework/memory/block_stock.h"

#include "framework/lifetime/end_of_life.h"

#include <platform/thread_gate.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace zel::memory {

namespace {

constexpr std::size_t step = 64;  // bytes between one size and the next
constexpr std::size_t header = 8; // of the general allocator, before each block
constinit std::array<block_stock, 16> stocks;
constinit platform::thread_gate open_stocks;

class closing final : public lifetime::end_of_life_action {
public:
    closing() noexcept : end_of_life_action(lifetime::everything) {}
    void run() override {
        open_stocks.close();
        for (auto& stock : stocks)
            stock.release_all();
    }
};

// Relaxed: only the first counts.
constinit std::atomic<bool> will_close{false};

void see_to_closing() noexcept {
    if (will_close.load(std::memory_order_relaxed) ||
        will_close.exchange(true, std::memory_order_relaxed))
        return;
    platform::thread_gate::prepare();
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

// So that with its header a block takes whole steps.
constexpr std::size_t stocked_size(std::size_t size) noexcept {
    return (size + header + step - 1) / step * step - header;
}

// Null for large blocks, and where none are kept.
block_stock* stock_for(std::size_t size) noexcept {
    const std::size_t index = (size + header - 1) / step;
    return recycles && index < stocks.size() ? &stocks[index] : nullptr;
}

} // namespace

void* take_block(std::size_t size) {
    auto* const stock = stock_for(size);
    void* const kept = stock ? stock->take() : nullptr;
    return kept ? kept : ::operator new(stock ? stocked_size(size) : size);
}

void give_block_back(void* memory, std::size_t size) noexcept {
    auto* const stock = stock_for(size);
    if (!stock || !stock->give_back(memory))
        ::operator delete(memory);
}

// Does nothing once the stocks are closed.
template <class Use>
void block_stock::with_own_place(const Use& use) noexcept {
    const platform::thread_gate::visit inside_stocks(open_stocks);
    if (!inside_stocks)
        return;
    const auto slot = platform::thread_slot();
    place& own = places_[slot];
    if (slot == platform::shared_thread_slot) {
        platform::scoped_lock inside(own.guard);
        use(own);
    } else {
        use(own);
    }
}

void* block_stock::take() noexcept {
    void* taken = nullptr;
    with_own_place([&](place& own) {
        if (!own.open) {
            own.open = own.full ? std::exchange(own.full, nullptr) : obtain_bundle();
            own.open_count = own.open ? bundle_size : 0;
        }
        if (own.open) {
            --own.open_count;
            taken = std::exchange(own.open, own.open->next);
        }
    });
    return taken;
}

bool block_stock::give_back(void* memory) noexcept {
    see_to_closing();
    bool is_kept = false;
    block* surplus = nullptr;
    with_own_place([&](place& own) {
        is_kept = true;
        if (own.open_count == bundle_size) {
            if (own.full)
                surplus = exchange_bundle(own.full);
            own.full = std::exchange(own.open, nullptr);
            own.open_count = 0;
        }
        own.open = ::new (memory) block{own.open, nullptr};
        ++own.open_count;
    });
    release(surplus);
    return is_kept;
}

void block_stock::release_all() noexcept {
    for (place& p : places_) {
        release(std::exchange(p.open, nullptr));
        release(std::exchange(p.full, nullptr));
    }
    platform::scoped_lock inside(exchange_guard_);
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
    if (bundle_count_ == most_bundles)
        return bundle;
    ++bundle_count_;
    bundle->next_bundle = std::exchange(bundles_, bundle);
    return nullptr;
}

} // namespace zel::memory
