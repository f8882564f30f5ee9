// Being told of what changes in folders.
//
//     folder_watch watch;
//     watch.add("music");
//     while (const auto changes = watch.wait())
//         for (const auto& change : *changes)
//             look_again(change);
//
// A change says where to look again and not what happened: by the time it is read, the
// place may look different once more. A watch of a folder does not reach into its
// subfolders: add those whose content is to be followed, too.
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

    /// From now on `wait` returns changes in the folder, whose paths begin with this one.
    /// Adding a folder that is watched already does no harm. A folder that is removed or
    /// moved away is not watched any more. Any thread. Returns why the folder cannot be
    /// watched, if it cannot.
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
