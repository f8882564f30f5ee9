#include "platform/linux/io_priority.h"
#include "platform/src/watched_thread_test.h"

#include <platform/credentials.h>
#include <platform/thread_description.h>
#include <platform/thread_priority.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

std::string shown() {
    std::string name;
    std::ifstream file("/proc/self/task/" + std::to_string(this_thread_id()) + "/comm");
    return std::getline(file, name), name;
}

std::string text_of(const void* text) {
    return static_cast<const char*>(text);
}

TEST(ThreadDescription, IsKnownAtOnceAndFollowedByTheSystemsNameWhenItLastsAndWhenItEnds) {
    for (const auto where : {std::launch::deferred, std::launch::async}) {
        watched_thread([&] {
            const thread_id self = this_thread_id();
            const auto text = [&] { return std::async(where, &thread_description, self).get(); };
            const auto publish = [&] {
                return std::async(where, &publish_thread_descriptions).get();
            };
            for (const std::string own : {"by itself", "another name"}) {
                shown_activity outer(&text_of, "outer\u00e9");
                pthread_setname_np(pthread_self(), own.c_str());
                EXPECT_TRUE(publish());
                shown_activity inner(&text_of, "inner\u00e9");
                EXPECT_TRUE(publish()) << "the text is another one than the time before";
                EXPECT_EQ(shown() + text(), own + "outer\u00e9 - inner\u00e9");
                EXPECT_FALSE(publish());
                EXPECT_EQ(shown(), "outer\u00e9 - inner");
                inner.end();
                EXPECT_EQ(shown(), "outer\u00e9");
                inner.end();
                pthread_setname_np(pthread_self(), "meanwhile");
                outer.end();
                EXPECT_EQ(shown() + text(), "meanwhile");
            }
        }).join();
    }
}

TEST(ThreadDescription, EndsWithItsThreadAlsoForTheThreadsLastActionsAndInTheChildOfAFork) {
    static std::string left = "nothing";
    struct last_action {
        ~last_action() {
            const shown_activity late(&text_of, "late");
            left = thread_description(id);
        }
        thread_id id;
    };
    thread_id ended = no_thread;
    watched_thread([&] {
        thread_local const last_action destroyed_after_the_description{this_thread_id()};
        const shown_activity parent(&text_of, "parent");
        ended = destroyed_after_the_description.id;
        EXPECT_TRUE(holds_in_a_child([ended] {
            return thread_description(ended) + thread_description(this_thread_id()) == "parent";
        })) << "the child takes its thread for the parent's";
    }).join();
    EXPECT_EQ(left + thread_description(ended), "");
}

// Whoever looks uses a text only as long as it is there.
TEST(ThreadDescription, LeavesNoOldNameBehindWhileOtherThreadsLookAndPublish) {
    std::atomic<int> running{4};
    std::deque<watched_thread> threads;
    std::array<std::atomic<thread_id>, 4> ids{};
    for (auto& id : ids) {
        threads.emplace_back([&, own = shown()] {
            id = this_thread_id();
            for (int round = 0; round < 400; ++round) {
                {
                    const auto text = std::make_unique<std::string>("a text");
                    const shown_activity activity(&text_of, text->c_str());
                    while (round % 8 == 0 && shown() == own) {
                    }
                }
                EXPECT_EQ(shown(), own);
            }
            --running;
        });
    }
    while (running != 0) {
        publish_thread_descriptions();
        for (const auto& id : ids) {
            const auto text = thread_description(id);
            EXPECT_TRUE(text.empty() || text == "a text") << text;
        }
    }
}

TEST(ThreadPriority, IsLoweredFreelyAndRaisedToNormalWhereTheSystemAllows) {
    EXPECT_FALSE(thread_priority(no_thread) || set_thread_priority(no_thread, -1) ||
                 raise_to_normal_priority(no_thread) || set_thread_priority(0, -1));
    watched_thread([] {
        const thread_id self = this_thread_id();
        const bool is_low_anyway = thread_priority(self) < 0;
        for (const auto kind : {io_priority::best_effort, io_priority::idle}) {
            syscall(SYS_ioprio_set, io_priority::of_one_thread, 0, io_priority::value_of(kind, 7));
            EXPECT_TRUE(raise_to_normal_priority(self) || is_low_anyway);
            EXPECT_EQ(syscall(SYS_ioprio_get, io_priority::of_one_thread, 0), 0);
        }
        const int low = lower_priority();
        EXPECT_TRUE(set_thread_priority(self, low));
        EXPECT_EQ(thread_priority(self), low);
        const bool raised = raise_to_normal_priority(self);
        EXPECT_EQ(thread_priority(self), raised ? 0 : low);
        if (!set_thread_priority(self, 1))
            GTEST_SKIP() << "no right to raise a priority";
        EXPECT_TRUE(raised && raise_to_normal_priority(self));
        EXPECT_EQ(thread_priority(self), 1) << "an urgent thread is left alone";
    }).join();
}

// What the system says about the calling thread, its rights included.
std::vector<long> credentials() {
    __user_cap_header_struct self{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[2] = {};
    const long failure = syscall(SYS_capget, &self, rights);
    return {geteuid(), getegid(),          syscall(SYS_setfsuid, -1), syscall(SYS_setfsgid, -1),
            failure,   rights[0].effective};
}

bool on_a_thread(const std::function<bool()>& holds) {
    bool held = false;
    watched_thread([&] { held = holds(); }).join();
    return held;
}

bool found_and_reverted() {
    const bool found = is_impersonating();
    revert_to_self();
    return found && !is_impersonating();
}

TEST(Credentials, CountTheOwnUserAndLeaveAllAsItWasWhenTheSystemRefuses) {
    const auto holds = [] {
        const std::uint32_t group = geteuid() == 9 ? 8 : getegid(); // may be taken on
        const auto before = credentials();
        return impersonate({0, group}) == EPERM && impersonate({0xFFFFFFFF, group}) == EINVAL &&
               !is_impersonating() && impersonate({geteuid(), getegid()}) == 0 &&
               credentials() == before && found_and_reverted() && credentials() == before;
    };
    EXPECT_TRUE(holds_in_a_child([&] {
        const bool root = geteuid() == 0;
        return (!root || setresgid(7, 7, 8) + setresuid(9, 9, 9) == 0) && on_a_thread(holds);
    }));
}

TEST(Credentials, ActForOneThreadHoweverItChangedAndGoBack) {
    if (geteuid() != 0)
        GTEST_SKIP() << "for root";
    const auto before = credentials();
    const auto goes_back = [&] { return found_and_reverted() && credentials() == before; };
    EXPECT_EQ(impersonate({33, 44}), 0);
    EXPECT_EQ(impersonate({55, 66}), 0) << "the first user has no right to this";
    EXPECT_EQ(credentials(), (std::vector<long>{55, 66, 55, 66, 0, 0}));
    EXPECT_TRUE(thread_user().user == 55 && process_user().user == 0);
    // New threads start as their creator is, and do not speak for the process.
    EXPECT_TRUE(on_a_thread([&] { return on_a_thread(goes_back) && goes_back(); }));
    EXPECT_TRUE(goes_back());
    for (const auto& run : {&on_a_thread, &holds_in_a_child}) {
        EXPECT_TRUE(run([&] { return syscall(SYS_setfsuid, 33) == 0 && goes_back(); }));
        EXPECT_TRUE(run([&] {
            syscall(SYS_setresgid, -1, 44, -1);
            return syscall(SYS_setresuid, -1, 33, -1) == 0 && goes_back();
        }));
    }
}

TEST(Credentials, FollowAChangeOfTheWholeProcess) {
    if (geteuid() != 0)
        GTEST_SKIP() << "for root";
    const auto known = [] { return !is_impersonating() && process_user().user == 9; };
    const auto found = [&] {
        return known() && syscall(SYS_setresuid, -1, 0, -1) == 0 && found_and_reverted() && known();
    };
    EXPECT_TRUE(holds_in_a_child([&] { return setresuid(9, 9, 9) == 0 && known(); })) << "alone";
    EXPECT_TRUE(holds_in_a_child([&] {
        return on_a_thread([&] { return seteuid(9) == 0 && known() && on_a_thread(found); });
    }));
}

} // namespace
