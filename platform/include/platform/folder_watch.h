// Being told of what changes in folders.
//
//     folder_watch watch;
//     watch.add("music");
//     while (const auto changes = watch.wait())
//         for (const auto& change : *changes)
//             look_again(change);
//
// A change says where to look again and not what happened: by the time it is read, the
// place may look different once more. What changes below a folder's subfolders is told
// only for those that were added themselves.
#pragma once

#include <platform/export.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace zel::platform {

struct folder_change {
    enum class where {
        file,      ///< something that is or was no folder
        folder,    ///< a folder as a whole: there, gone, other rights
        everywhere ///< changes were lost: every added folder has to be looked at
    };
    where at = where::everywhere;
    std::string path; ///< begins as the folder was given to `add`; empty for `everywhere`

    bool operator==(const folder_change&) const = default;
};

class ZEL_EXPORT folder_watch {
public:
    /// Throws std::system_error when the system offers no more of these.
    folder_watch();
    ~folder_watch();
    folder_watch(const folder_watch&) = delete;
    folder_watch& operator=(const folder_watch&) = delete;

    /// Tells of changes in the folder from now on, under this path; again for one that is
    /// watched already does no harm. A folder that goes or is moved away is watched no
    /// more. Any thread. Returns why it cannot be watched.
    std::error_code add(const std::string& folder);

    /// Waits for changes, in their order; nothing once `stop` was called. One thread at a
    /// time. Throws std::system_error.
    std::optional<std::vector<folder_change>> wait();

    /// Ends `wait`, now and later. Any thread.
    void stop() noexcept;

private:
    class implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace zel::platform
