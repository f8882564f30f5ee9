#include "framework/lifetime/end_of_life.h"

#include <platform/cancellation.h>
#include <platform/critical_section.h>
#include <platform/diagnostics.h>

#include <array>
#include <atomic>
#include <string_view>

namespace zel::lifetime {

class end_of_life_list {
public:
    constexpr end_of_life_list() noexcept = default;

    void push(end_of_life_action* action) noexcept {
        action->next_ = head_.load(std::memory_order_relaxed);
        // Release: the runner sees the whole action.
        while (!head_.compare_exchange_weak(action->next_, action, std::memory_order_release,
                                            std::memory_order_relaxed)) {
        }
    }

    /// Unlinks the action to run next. Only the one running thread calls this.
    std::unique_ptr<end_of_life_action> take_highest(int threshold) noexcept {
        end_of_life_action* highest = nullptr;
        end_of_life_action* before = nullptr;
        end_of_life_action* previous = nullptr;
        for (auto* a = head_.load(std::memory_order_acquire); a; previous = a, a = a->next_) {
            if (!highest || a->longevity_ > highest->longevity_) {
                highest = a;
                before = previous;
            }
        }
        if (!highest || highest->longevity_ < threshold)
            return nullptr;
        unlink(highest, before);
        return std::unique_ptr<end_of_life_action>(highest);
    }

private:
    void unlink(end_of_life_action* action, end_of_life_action* before) noexcept {
        end_of_life_action* expected = action;
        if (!before && head_.compare_exchange_strong(expected, action->next_))
            return;
        // Other threads push in front only, so a predecessor found now stays one.
        if (!before)
            for (before = head_.load(std::memory_order_acquire); before->next_ != action;)
                before = before->next_;
        before->next_ = action->next_;
    }

    // Pushed by any thread without a lock.
    std::atomic<end_of_life_action*> head_{nullptr};
};

namespace {

constinit end_of_life_list actions;
// One thread runs actions at a time; recursive because an action may start a run.
constinit platform::critical_section running;

void report(const std::exception* failure) noexcept {
    constexpr std::string_view text = "Atexit action throws exception!";
    const std::array<std::uintptr_t, 3> arguments = {text.size(),
                                                     reinterpret_cast<std::uintptr_t>(text.data()),
                                                     reinterpret_cast<std::uintptr_t>(failure)};
    platform::raise_exception(platform::diagnostic::text_report, arguments);
}

void run(end_of_life_action& action) {
    const platform::no_cancellation to_the_end;
    const std::exception_ptr foreign = platform::guarded([&] {
        try {
            action.run();
        } catch (const std::exception& failure) {
            report(&failure);
        }
    });
    if (foreign)
        report(nullptr);
}

} // namespace

void add_end_of_life_action(std::unique_ptr<end_of_life_action> action) noexcept {
    actions.push(action.release());
}

void run_end_of_life_actions(int threshold) {
    platform::scoped_lock inside(running);
    while (const auto action = actions.take_highest(threshold))
        run(*action);
}

} // namespace zel::lifetime
