#include <platform/folder_watch.h>

#include <platform/critical_section.h>

#include <array>
#include <cerrno>
#include <map>
#include <poll.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace zel::platform {

namespace {

// IN_MODIFY besides IN_CLOSE_WRITE: a log that stays open for ever changes, too.
constexpr std::uint32_t interesting = IN_ONLYDIR | IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE |
                                      IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE |
                                      IN_DELETE_SELF | IN_MOVE_SELF;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool is_at_or_below(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) &&
           (path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/');
}

class descriptor {
public:
    descriptor(int number, const char* what) : number_(number) {
        if (number_ < 0)
            fail(what);
    }
    ~descriptor() { close(number_); }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    int number() const noexcept { return number_; }

private:
    int number_;
};

} // namespace

class folder_watch::implementation {
public:
    std::error_code add(const std::string& folder) {
        platform::scoped_lock inside(guard_);
        const int number = inotify_add_watch(changes_.number(), folder.c_str(), interesting);
        if (number < 0)
            return {errno, std::generic_category()};
        folders_[number] = folder;
        return {};
    }

    std::optional<std::vector<folder_change>> wait() {
        for (;;) {
            std::array<pollfd, 2> ready{
                {{stopped_.number(), POLLIN, 0}, {changes_.number(), POLLIN, 0}}};
            if (poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR)
                fail("Waiting for changes of folders failed");
            if (ready[0].revents != 0)
                return std::nullopt;
            if (ready[1].revents == 0)
                continue;
            if (auto changes = read_changes(); !changes.empty())
                return changes;
        }
    }

    void stop() noexcept { eventfd_write(stopped_.number(), 1); }

private:
    std::vector<folder_change> read_changes() {
        alignas(inotify_event) std::array<char, 64 * 1024> bytes;
        const ssize_t length = read(changes_.number(), bytes.data(), bytes.size());
        if (length < 0 && errno != EAGAIN && errno != EINTR)
            fail("Reading changes of folders failed");
        std::vector<folder_change> changes;
        platform::scoped_lock inside(guard_);
        for (ssize_t at = 0; at < length;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(bytes.data() + at);
            at += static_cast<ssize_t>(sizeof event + event.len);
            take(event, changes);
        }
        return changes;
    }

    void take(const inotify_event& event, std::vector<folder_change>& changes)
        ZEL_REQUIRES(guard_) {
        using where = folder_change::where;
        if (event.mask & IN_Q_OVERFLOW) {
            changes.push_back({where::everywhere, {}});
            return;
        }
        const auto folder = folders_.find(event.wd);
        if (folder == folders_.end())
            return; // watched no more
        if (event.mask & IN_IGNORED) {
            folders_.erase(folder);
            return;
        }
        std::string path = folder->second;
        if (event.len > 0)
            path += (path.ends_with('/') ? "" : "/") + std::string(event.name);
        const bool is_folder = event.len == 0 || event.mask & IN_ISDIR;
        folder_change change{is_folder ? where::folder : where::file, std::move(path)};
        // What was moved away is still watched by the system, under a name that is wrong now.
        if (is_folder && event.mask & (IN_MOVED_FROM | IN_MOVE_SELF))
            forget(change.path);
        if (changes.empty() || changes.back() != change)
            changes.push_back(std::move(change));
    }

    void forget(std::string_view moved) ZEL_REQUIRES(guard_) {
        for (auto folder = folders_.begin(); folder != folders_.end();) {
            const bool is_inside = is_at_or_below(folder->second, moved);
            if (is_inside)
                inotify_rm_watch(changes_.number(), folder->first);
            folder = is_inside ? folders_.erase(folder) : std::next(folder);
        }
    }

    const descriptor changes_{inotify_init1(IN_CLOEXEC | IN_NONBLOCK),
                              "Changes of folders cannot be watched"};
    const descriptor stopped_{eventfd(0, EFD_CLOEXEC), "Changes of folders cannot be watched"};
    critical_section guard_; // between the thread that waits and those that add
    std::map<int, std::string> folders_ ZEL_GUARDED_BY(guard_); // by the system's number
};

folder_watch::folder_watch() : implementation_(std::make_unique<implementation>()) {}
folder_watch::~folder_watch() = default;

std::error_code folder_watch::add(const std::string& folder) {
    return implementation_->add(folder);
}

std::optional<std::vector<folder_change>> folder_watch::wait() {
    return implementation_->wait();
}

void folder_watch::stop() noexcept {
    implementation_->stop();
}

} // namespace zel::platform
