// Keeps the logger that is told what tasks cost, and reads the kernel's figures for it.
#pragma once

#include <tasklib/performance_logger.h>

#include <platform/critical_section.h>
#include <platform/image_use.h>

#include <utility>

namespace zel::perfstats {

class performance_logger_storage_impl final : public tasklib::performance_logger_storage_module {
public:
    std::shared_ptr<tasklib::performance_logger_ifc> get_performance_logger() override;
    void set_performance_logger(std::shared_ptr<tasklib::performance_logger_ifc> logger) override;
    void set_measurement(bool on) override;
    const std::atomic<bool>& is_measuring() const noexcept override;
    Data begin_thread_statistics() override;
    Data end_thread_statistics() override;

    ~performance_logger_storage_impl() override;

private:
    // Whoever is given the logger holds all of this.
    struct installed {
        explicit installed(std::shared_ptr<tasklib::performance_logger_ifc> by_host)
            : use(platform::image_that_made(by_host), "performance logger", {}),
              logger(std::move(by_host)) {}

        const platform::image_use use; // ends after the logger
        const std::shared_ptr<tasklib::performance_logger_ifc> logger;
    };

    void update_measuring() ZEL_REQUIRES(guard_);

    // Guards the logger and the switch; never held while a logger is called.
    platform::plain_lock guard_;
    std::shared_ptr<const installed> logger_ ZEL_GUARDED_BY(guard_);
    bool switched_on_ ZEL_GUARDED_BY(guard_) = true;
};

} // namespace zel::perfstats
