#include "libraries/module_lifetime/lifetime_service_impl.h"

#include "framework/lifetime/end_of_life.h"

#include <platform/image_use.h>

#include <algorithm>
#include <limits>

namespace zel::mi {

namespace {

// Whether the code is still there: somebody may have unmapped its image past the
// loader.
template <class Function>
bool lies_in(platform::image_handle image, Function* code) {
    return platform::image_of(reinterpret_cast<const void*>(code)) == image;
}

} // namespace

// Plain pointer: the service lives as long as the process.
class LifetimeServiceImpl::registration final : public unload_registration {
public:
    registration(LifetimeServiceImpl& service, std::uint64_t number) noexcept
        : service_(service), number_(number) {}
    ~registration() override { service_.withdraw(number_); }

private:
    LifetimeServiceImpl& service_;
    std::uint64_t number_;
};

LifetimeServiceImpl::image_entry& LifetimeServiceImpl::entry(platform::image_handle image) {
    for (auto& known : images_)
        if (known.image == image)
            return known;
    images_.emplace_back().image = image;
    return images_.back();
}

void LifetimeServiceImpl::AddImage(platform::image_handle image, const image_hook& hook) {
    platform::scoped_lock inside(guard_);
    entry(image).hook = hook;
}

std::shared_ptr<unload_registration>
LifetimeServiceImpl::RegisterUnloadCallback(platform::image_handle image, unload_callback callback,
                                            exit_rank rank) {
    platform::scoped_lock inside(guard_);
    auto result = std::make_shared<registration>(*this, last_number_ + 1);
    image_entry& known = entry(image);
    known.callbacks.push_back({callback, ++last_number_});
    known.rank = rank;
    return result;
}

void LifetimeServiceImpl::withdraw(std::uint64_t number) {
    platform::scoped_lock inside(guard_);
    for (auto& known : images_)
        std::erase_if(known.callbacks, [&](const auto& c) { return c.number == number; });
}

// A callback may withdraw itself and others, so each is looked up anew.
IModuleLifetimeService::unload_callback
LifetimeServiceImpl::callback_after(platform::image_handle image, std::uint64_t& number) {
    platform::scoped_lock inside(guard_);
    for (const auto& known : images_)
        for (const auto& c : known.callbacks)
            if (known.image == image && c.number > number) {
                number = c.number;
                return c.callback;
            }
    return nullptr;
}

// The image's callbacks, then whatever actions they left.
std::optional<image_hook> LifetimeServiceImpl::run_actions(platform::image_handle image) {
    std::uint64_t number = 0;
    while (const auto callback = callback_after(image, number))
        if (lies_in(image, callback))
            callback();
    const auto hook = hook_of(image);
    if (hook)
        hook->run_actions(lifetime::everything);
    return hook;
}

std::optional<image_hook> LifetimeServiceImpl::hook_of(platform::image_handle image) {
    std::optional<image_hook> hook;
    {
        platform::scoped_lock inside(guard_);
        for (const auto& known : images_)
            if (known.image == image)
                hook = known.hook;
    }
    if (hook && !lies_in(image, hook->run_actions))
        hook.reset();
    return hook;
}

std::int32_t LifetimeServiceImpl::CountObjects(platform::image_handle image) {
    const auto hook = hook_of(image);
    return hook ? hook->live_objects() : 0;
}

image_end LifetimeServiceImpl::EndImage(platform::image_handle image) {
    const auto hook = run_actions(image);
    // Twice: something may just have been made by what was counted last.
    bool in_use = false;
    for (int look = 0; look < 2 && !in_use; ++look)
        in_use = (hook && hook->live_objects() != 0) || platform::uses_of(image) != 0;
    platform::scoped_lock inside(guard_);
    // Threads still run while the process exits; their code stays.
    if (process_ends_)
        return image_end::process_exits;
    if (in_use)
        return image_end::in_use;
    std::erase_if(images_, [&](const auto& known) { return known.image == image; });
    return image_end::unused;
}

std::optional<platform::image_handle> LifetimeServiceImpl::next_to_end_at_exit() {
    constexpr int last = std::numeric_limits<int>::max();
    const auto rank = [](const image_entry& e) {
        return e.ended_at_exit ? last : e.rank ? static_cast<int>(*e.rank) : 0;
    };
    platform::scoped_lock inside(guard_);
    const auto next =
        std::min_element(images_.begin(), images_.end(),
                         [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    if (next == images_.end() || next->ended_at_exit)
        return std::nullopt;
    next->ended_at_exit = true;
    return next->image;
}

void LifetimeServiceImpl::end_process() {
    {
        platform::scoped_lock inside(guard_);
        process_ends_ = true;
    }
    while (const auto image = next_to_end_at_exit())
        run_actions(*image);
}

} // namespace zel::mi
