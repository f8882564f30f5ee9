#include "platform/src/watched_thread_test.h"

#include <platform/thread_description.h>

#include <atomic>
#include <deque>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>

namespace {

using namespace zel::platform;

std::string shown() {
    std::string name;
    std::ifstream file("/proc/self/task/" + std::to_string(this_thread_id()) + "/comm");
    return std::getline(file, name), name;
}

TEST(ThreadDescription, IsKnownAtOnceAndFollowedByTheSystemsNameWhenItLastsAndWhenItIsRestored) {
    for (const auto where : {std::launch::deferred, std::launch::async}) {
        watched_thread([&] {
            const thread_id self = this_thread_id();
            const auto text = [&] { return std::async(where, &thread_description, self).get(); };
            const auto publish = [&] {
                return std::async(where, &publish_thread_descriptions).get();
            };
            EXPECT_EQ(replace_thread_description("outer"), "");
            for (const std::string own : {"by itself", "another name"}) {
                pthread_setname_np(pthread_self(), own.c_str());
                EXPECT_TRUE(publish());
                EXPECT_EQ(replace_thread_description("fourteen bytes\u00e9"), "outer");
                EXPECT_TRUE(publish()) << "the text is another one than the time before";
                EXPECT_EQ(shown() + text(), own + "fourteen bytes\u00e9");
                EXPECT_FALSE(publish());
                EXPECT_EQ(shown(), "fourteen bytes");
                restore_thread_description("outer");
                EXPECT_EQ(shown(), "outer");
                restore_thread_description("");
                EXPECT_EQ(shown() + text(), own);
                replace_thread_description("outer");
            }
        }).join();
    }
}

TEST(ThreadDescription, EndsWithItsThreadAlsoForTheThreadsLastActionsAndInTheChildOfAFork) {
    static std::string left;
    struct last_action {
        ~last_action() { left = replace_thread_description("late") + thread_description(id); }
        thread_id id;
    };
    thread_id ended = no_thread;
    watched_thread([&] {
        thread_local const last_action destroyed_after_the_description{this_thread_id()};
        replace_thread_description("parent");
        ended = destroyed_after_the_description.id;
        EXPECT_TRUE(holds_in_a_child([ended] {
            return thread_description(ended) + thread_description(this_thread_id()) == "parent";
        })) << "the child takes its thread for the parent's";
    }).join();
    EXPECT_EQ(left + thread_description(ended), "");
}

TEST(ThreadDescription, LeavesNoOldNameBehindWhileAnotherThreadPublishes) {
    std::atomic<int> running{4};
    std::deque<watched_thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, own = shown()] {
            for (int round = 0; round < 2000; ++round) {
                replace_thread_description("a text");
                while (round % 8 == 0 && shown() == own) {
                }
                restore_thread_description("");
                EXPECT_EQ(shown(), own);
            }
            --running;
        });
    }
    while (running != 0)
        publish_thread_descriptions();
}

} // namespace
