#include <platform/credentials.h>

#include "platform/src/watched_thread_test.h"

#include <platform/impersonation_watch.h>

#include <cerrno>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace zel::platform;

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

TEST(ImpersonationWatch, FindsWhatFoldsIntoItsStretchAlone) {
    EXPECT_TRUE(on_a_thread([] {
        const user_identity self{geteuid(), getegid()};
        const auto finds = [&](bool acts) {
            impersonation_watch watch;
            return (!acts || impersonate(self) == 0) && watch.finds_impersonation() == acts;
        };
        const own_code_only outside;
        bool right = finds(false) && finds(true) && finds(false); // is still acting: no change
        revert_to_self();
        impersonation_watch foreign; // may act between the inner ones
        right = right && finds(false) && impersonate(self) == 0 && finds(false);
        return right && foreign.finds_impersonation();
    }));
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
