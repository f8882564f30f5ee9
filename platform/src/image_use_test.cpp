#include "platform/src/watched_thread_test.h"

#include <platform/image_use.h>

#include <atomic>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace zel::platform;

void in_the_program() {}

class ImageUse : public testing::Test {
protected:
    const image_handle library = image_of(reinterpret_cast<void*>(&this_thread_id));
};

TEST_F(ImageUse, OfACallableCountsForTheImageThatMadeIt) {
    const std::function<void()> own = [] {};
    const std::function<void()> foreign = std::bind(&in_the_program);
    const image_handle program = image_of(reinterpret_cast<void*>(&in_the_program));
    EXPECT_TRUE(is_program(program));
    EXPECT_FALSE(is_program(library));
    EXPECT_EQ(image_that_made(own), program);
    EXPECT_EQ(image_that_made(foreign), program);
    EXPECT_EQ(image_that_made(std::function<thread_id()>(&this_thread_id)), library);
    EXPECT_EQ(image_that_made(std::function<void()>()), image_handle::none);
    const image_use uncounted(image_that_made(own), "handler of events", "a");
    EXPECT_EQ(uses_of(program), 0U) << "it is never unmapped";
}

TEST_F(ImageUse, IsNotMissedWhileOthersComeAndGo) {
    std::atomic<bool> is_over{false};
    // Always at least one: each is made before the one before it ends.
    watched_thread relaying([&] {
        auto held = std::make_unique<image_use>(library, "payload", "");
        while (!is_over) {
            watched_thread next([&] {
                auto taken_over = std::make_unique<image_use>(library, "payload", "");
                held.swap(taken_over);
            });
            next.join();
        }
    });
    while (uses_of(library) == 0) {
    }
    int missed = 0;
    for (int look = 0; look < 20'000; ++look)
        missed += uses_of(library) == 0;
    is_over = true;
    relaying.join();
    EXPECT_EQ(missed, 0);
    EXPECT_EQ(uses_of(library), 0U);
}

} // namespace
