// The end of every library of the process: which images there are, what they
// want to be called for, and the one hook at process exit.
#pragma once

#include "framework/module_interface/lifetime_service.h"

#include <platform/critical_section.h>

#include <optional>
#include <vector>

namespace zel::mi {

class LifetimeServiceImpl final : public IModuleLifetimeService {
public:
    void AddImage(platform::image_handle image, const image_hook& hook) override;
    std::shared_ptr<unload_registration> RegisterUnloadCallback(platform::image_handle image,
                                                                unload_callback callback,
                                                                exit_rank rank) override;
    image_end EndImage(platform::image_handle image) override;
    std::int32_t CountObjects(platform::image_handle image) override;

    /// Ends all images in the order of their ranks, also those that come up while
    /// others end. Nothing is unmapped.
    void end_process();

private:
    class registration;
    struct callback_entry {
        unload_callback callback;
        std::uint64_t number; ///< names the registration
    };
    struct image_entry {
        platform::image_handle image = platform::image_handle::none;
        std::optional<image_hook> hook;
        std::optional<exit_rank> rank;
        std::vector<callback_entry> callbacks;
        bool ended_at_exit = false;
    };

    image_entry& entry(platform::image_handle image) ZEL_REQUIRES(guard_);
    void withdraw(std::uint64_t number);
    unload_callback callback_after(platform::image_handle image, std::uint64_t& number);
    std::optional<image_hook> hook_of(platform::image_handle image);
    std::optional<image_hook> run_actions(platform::image_handle image);
    std::optional<platform::image_handle> next_to_end_at_exit();

    // Guards the list. Never held while code of an image runs.
    platform::critical_section guard_;
    std::vector<image_entry> images_ ZEL_GUARDED_BY(guard_);
    std::uint64_t last_number_ ZEL_GUARDED_BY(guard_) = 0;
    bool process_ends_ ZEL_GUARDED_BY(guard_) = false;
};

} // namespace zel::mi
