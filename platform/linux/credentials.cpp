#include <platform/cancellation.h>
#include <platform/credentials.h>
#include <platform/process.h>
#include <platform/thread_id.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

namespace {

// The system reads this as "leave it"; it is nobody's number.
constexpr std::uint32_t nobody = 0xFFFFFFFF;

// Initial-exec and trivially destructible, as the number of a thread is.
struct thread_state {
    bool acting = false;
    user_identity home;
    user_identity taken;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_state mine;

// What the process's identity was when somebody last looked. Relaxed: no other data go
// with the value; whoever reads an old one finds that it does not fit, and asks the threads.
constinit std::atomic<user_identity> process_now{user_identity{nobody, nobody}};

// Whether no thread may ever change whom it acts for. Relaxed: once true, it stays.
constinit std::atomic<bool> settled{false};

// Whether the first thread acts for another user. New threads start with its identity
// then, so the threads do not show the identity of the process. Relaxed: the system orders
// the rest.
constinit std::atomic<bool> leader_acts{false};

bool same(const user_identity& one, const user_identity& other) noexcept {
    return one.user == other.user && one.group == other.group;
}

// All by raw system calls: the library's own functions change every thread.
std::uint32_t raw(long call, std::uint32_t argument = nobody) noexcept {
    return static_cast<std::uint32_t>(syscall(call, argument));
}

int raw_set(long call, std::uint32_t id) noexcept {
    return syscall(call, nobody, id, nobody) == 0 ? 0 : errno;
}

user_identity effective() noexcept {
    return {raw(SYS_geteuid), raw(SYS_getegid)};
}

user_identity for_files() noexcept {
    return {raw(SYS_setfsuid), raw(SYS_setfsgid)};
}

bool acts_as(const user_identity& whom) noexcept {
    return same(effective(), whom) && same(for_files(), whom);
}

// The user is set before the group, because setting the group needs the user's rights. The
// user for files comes before both: rights that setfsuid took away are given back only by
// setfsuid, and only when it changes the user for files.
int go_home(const user_identity& home) noexcept {
    raw(SYS_setfsuid, home.user);
    const int failure = raw_set(SYS_setresuid, home.user);
    return failure != 0 ? failure : raw_set(SYS_setresgid, home.group);
}

// The group is set first, because the rights to do so may go with the user.
int leave_for(const user_identity& whom) noexcept {
    const int failure = raw_set(SYS_setresgid, whom.group);
    return failure != 0 ? failure : raw_set(SYS_setresuid, whom.user);
}

// What the threads of the process say about its identity.
struct survey {
    user_identity found{nobody, nobody};
    bool stands = false; // a thread still has the identity known so far
    bool settled = true; // no thread may change
    int failure = 0;

    bool any() const noexcept { return found.user != nobody; }
    void add(const char* status) noexcept;
    void ask(int tasks, const char* thread) noexcept;
};

void survey::add(const char* status) noexcept {
    // A thread that has ended keeps its identity when that of the process changes.
    if (std::strstr(status, "\nState:\tZ"))
        return;
    std::array<unsigned, 3> user{}; // real, effective, saved
    std::array<unsigned, 3> group{};
    unsigned long long rights = 0;
    const char* const ids = std::strstr(status, "\nUid:");
    const char* const permitted = std::strstr(status, "\nCapPrm:");
    if (!ids || std::sscanf(ids, " Uid: %u %u %u %*u Gid: %u %u %u", &user[0], &user[1], &user[2],
                            &group[0], &group[1], &group[2]) != 6) {
        settled = false;
        return;
    }
    constexpr auto to_change = 1ULL << CAP_SETUID | 1ULL << CAP_SETGID;
    settled = settled && permitted && std::sscanf(permitted, " CapPrm: %llx", &rights) == 1 &&
              (rights & to_change) == 0 && user[0] == user[1] && user[1] == user[2] &&
              group[0] == group[1] && group[1] == group[2];
    const user_identity seen{user[1], group[1]};
    stands = stands || same(seen, process_now.load(std::memory_order_relaxed));
    if (!any())
        found = seen;
}

void survey::ask(int tasks, const char* thread) noexcept {
    std::array<char, 4096> status{};
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "%.20s/status", thread);
    const int file = openat(tasks, path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || read(file, status.data(), status.size() - 1) <= 0)
        settled = false; // nothing to rely on for good
    else
        add(status.data());
    if (file >= 0)
        close(file);
}

// Asks the threads in the order of their age, until one still has the identity that is
// known of the process. When the whole process has changed its identity, none has it.
survey ask_threads(thread_id except) noexcept {
    const no_cancellation to_the_end; // files are open
    survey answer;
    const int tasks = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (tasks < 0) {
        answer.failure = errno;
        return answer;
    }
    alignas(dirent64) std::array<char, 2048> names;
    ssize_t size = 0;
    while (!answer.stands && (size = getdents64(tasks, names.data(), names.size())) > 0) {
        for (ssize_t at = 0; at < size && !answer.stands;) {
            const auto* const name = reinterpret_cast<const dirent64*>(&names[std::size_t(at)]);
            at += name->d_reclen;
            if (name->d_name[0] != '.' && std::strtoul(name->d_name, nullptr, 10) != except)
                answer.ask(tasks, name->d_name);
        }
    }
    close(tasks);
    return answer;
}

void adopt(const survey& answer) noexcept {
    process_now.store(answer.found, std::memory_order_relaxed);
    settled.store(answer.settled, std::memory_order_relaxed);
}

struct process_answer {
    user_identity identity;
    int failure = 0;
};

process_answer process_identity() noexcept {
    const user_identity known = process_now.load(std::memory_order_relaxed);
    if (mine.acting && acts_as(mine.taken))
        return {mine.home}; // a change of the whole process would have reached this thread
    if (acts_as(known) || leader_acts.load(std::memory_order_relaxed))
        return {known};
    survey answer = ask_threads(this_thread_id());
    if (!answer.any() && answer.failure == 0) {
        // There is no other thread to ask. If this one can still change back, it may just
        // be acting for somebody; if not, the process has changed for good.
        answer = ask_threads(no_thread);
        answer.stands = !answer.settled;
    }
    // Looks at the first thread once more, which may have begun to act meanwhile.
    if (answer.stands || !answer.any() || leader_acts.load(std::memory_order_relaxed))
        return {known, answer.failure};
    answer.settled = answer.settled && acts_as(answer.found); // this thread as well
    adopt(answer);
    return {answer.found};
}

// When the library is loaded late, the first thread may act for somebody already, and its
// identity would be taken for that of the process. Any later moment would be worse.
[[maybe_unused]] const bool first_look = [] {
    const survey answer = ask_threads(no_thread);
    if (answer.any())
        adopt(answer);
    else
        process_now.store(effective(), std::memory_order_relaxed);
    return true;
}();

void note_leader() noexcept {
    leader_acts.store(mine.acting && !same(mine.home, mine.taken), std::memory_order_relaxed);
}

// In the child of a fork the one thread that is left is the first.
[[maybe_unused]] const int fork_watch = pthread_atfork(nullptr, nullptr, &note_leader);

void note(const thread_state& now) noexcept {
    mine = now;
    if (this_thread_id() == process_id())
        note_leader();
}

} // namespace

int impersonate(const user_identity& whom) noexcept {
    if (whom.user == nobody || whom.group == nobody)
        return EINVAL;
    const thread_state state_before = mine;
    const user_identity before = effective();
    const user_identity files_before = for_files();
    const user_identity home = process_identity().identity;
    note({true, home, whom});
    int failure = 0;
    if (!acts_as(home)) // whom it acts for so far may lack the rights
        failure = go_home(home);
    if (failure == 0 && !same(home, whom))
        failure = leave_for(whom);
    if (failure == 0)
        return 0;
    leave_for(before);
    raw(SYS_setfsgid, files_before.group);
    raw(SYS_setfsuid, files_before.user);
    note(state_before);
    return failure;
}

bool is_impersonating() noexcept {
    if (mine.acting)
        return true;
    if (settled.load(std::memory_order_relaxed))
        return false;
    // The user for files follows the effective user, so one call asks for both. The group
    // is not asked for: nobody acts for somebody by the group alone, and a second call would
    // double the price.
    const std::uint32_t user = raw(SYS_setfsuid);
    if (user == process_now.load(std::memory_order_relaxed).user)
        return false;
    const user_identity process = process_identity().identity;
    return user != process.user || raw(SYS_geteuid) != process.user;
}

user_answer thread_user() noexcept {
    return {raw(SYS_geteuid)};
}

user_answer process_user() noexcept {
    const process_answer answer = process_identity();
    return {answer.identity.user, answer.failure};
}

void revert_to_self() noexcept {
    const user_identity home = process_identity().identity;
    if (!acts_as(home))
        go_home(home);
    note({});
}

} // namespace zel::platform
