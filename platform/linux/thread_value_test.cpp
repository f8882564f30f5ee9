#include "platform/src/watched_thread_test.h"

#include <platform/thread_value.h>

#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <vector>

namespace {

using namespace zel::platform;

struct ended_values {
    static void add(void* self, void* value) noexcept {
        static_cast<ended_values*>(self)->values.push_back(*static_cast<int*>(value));
    }
    std::vector<int> values;
};

TEST(ThreadValue, IsSeenByItsThreadAndToldOfAtItsEndWhileTheOwnerLives) {
    int one = 1, two = 2;
    ended_values ended, ended_late;
    thread_value value(&ended_values::add, &ended);
    std::optional<thread_value> gone;
    gone.emplace(&ended_values::add, &ended_late);
    EXPECT_EQ(value.get(), nullptr);
    watched_thread([&] {
        EXPECT_EQ(value.get(), nullptr);
        value.set(&two);
        value.set(&one);
        gone->set(&two);
        EXPECT_EQ(value.get(), &one);
        gone.emplace(&ended_values::add, &ended_late); // perhaps where the former one was
        EXPECT_EQ(gone->get(), nullptr);
    });
    EXPECT_EQ(ended.values, std::vector<int>{1});
    EXPECT_TRUE(ended_late.values.empty());
    EXPECT_EQ(value.get(), nullptr);
}

// Other ends of the thread may come later, and begin again.
TEST(ThreadValue, SetWhileTheThreadEndsIsToldOfToo) {
    static int again = 7;
    ended_values ended;
    static thread_value* value;
    thread_value made(&ended_values::add, &ended);
    value = &made;
    static pthread_key_t late;
    ASSERT_EQ(pthread_key_create(&late, [](void*) { value->set(&again); }), 0);
    watched_thread([&] {
        static int first = 1;
        value->set(&first);
        pthread_setspecific(late, &late);
    });
    ASSERT_FALSE(ended.values.empty());
    EXPECT_EQ(ended.values.back(), 7);
    pthread_key_delete(late);
}

} // namespace
