#include "generic/tasklib/src/tasks/cancellation_propagation.h"

#include "generic/tasklib/src/tasks/cancellation_base.h"
#include "generic/tasklib/src/tasks/reg_cookie.h"

#include <tasklib/cancellation_companions.h>

namespace zel::tasklib {

namespace {

class propagation final : public cancellation_callback {
public:
    explicit propagation(std::shared_ptr<cancellation_companion_ifc> companion) noexcept
        : companion_(std::move(companion)) {}
    void on_cancel(cancellation_ifc&) override {
        cancellation_base::propagate_after_callbacks(companion_);
    }

private:
    std::shared_ptr<cancellation_companion_ifc> companion_;
};

} // namespace

std::shared_ptr<keep_registered>
register_cancellation_callback(const std::shared_ptr<cancellation_ifc>& around,
                               const std::shared_ptr<cancellation_ifc>& made) {
    auto* const source = query<companion_source_ifc>(*around);
    const auto companion = source ? source->get_companion(made) : nullptr;
    if (!companion)
        return nullptr;
    const auto callback = std::make_shared<propagation>(companion);
    auto cookie = make_reg_cookie([around, callback] { around->remove_callback(callback.get()); });
    around->add_callback(callback.get());
    if (around->is_canceled())
        companion->propagate_cancel();
    return cookie;
}

} // namespace zel::tasklib
