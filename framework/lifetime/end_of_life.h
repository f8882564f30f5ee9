// The end of a library: what it must do before it is freed or the process exits.
//
// Each shared library has one list of actions of its own. An action has a
// longevity; the list is run from the highest longevity down to a threshold that
// depends on who asks. Nothing here is done by static destructors.
#pragma once

#include <limits>
#include <memory>

namespace zel::lifetime {

/// Down to here the process-wide lifetime service runs the actions of a library
/// that is about to be unloaded.
inline constexpr int unload_threshold = 201000;
/// Down to here a host runs them through `on_morna_dll_unload`.
inline constexpr int host_threshold = 100000;
/// Everything that is left.
inline constexpr int everything = std::numeric_limits<int>::min();

class end_of_life_action {
public:
    explicit end_of_life_action(int longevity) noexcept : longevity_(longevity) {}
    virtual ~end_of_life_action() = default;
    end_of_life_action(const end_of_life_action&) = delete;
    end_of_life_action& operator=(const end_of_life_action&) = delete;

    /// What it throws is reported to the diagnostic observers; the run goes on.
    /// The thread is not cancelled meanwhile.
    virtual void run() = 0;
    int longevity() const noexcept { return longevity_; }

private:
    friend class end_of_life_list;
    int longevity_;
    end_of_life_action* next_ = nullptr;
};

/// Adds an action to this library's list. Any thread, also from inside a run.
void add_end_of_life_action(std::unique_ptr<end_of_life_action> action) noexcept;

/// Runs and destroys this library's actions, as long as there is one at or above the
/// threshold: the highest longevity first, and among equal ones the one added last. One
/// thread at a time does so; an action may start a run itself.
void run_end_of_life_actions(int threshold);

} // namespace zel::lifetime
