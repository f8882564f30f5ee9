// A library that notes what it was told and tells when it ends, for dll_loader_test.cpp.
#include "framework/lifetime/end_of_life.h"
#include "framework/module_interface/lifetime_service.h"

#include <memory>

namespace {

class told_action final : public zel::lifetime::end_of_life_action {
public:
    explicit told_action(void (*action)()) : end_of_life_action(0), action_(action) {}
    void run() override { action_(); }

private:
    void (*action_)();
};

int times_told = 0;

} // namespace

// The action runs when the library ends. How often that was asked of this library.
extern "C" ZEL_EXPORT int at_the_end(void (*action)()) {
    zel::mi::announce_this_image();
    zel::lifetime::add_end_of_life_action(std::make_unique<told_action>(action));
    return ++times_told;
}
