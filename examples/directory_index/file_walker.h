// Walks a folder and broadcasts what it meets (paths.h).
//
// Every regular file below the folder gives one broadcast: found, or unreadable
// when it cannot be sized or opened. Symbolic links are not followed; what is
// neither file nor folder is not touched. The order is that of the file system.
#pragma once

#include "examples/directory_index/component.h"

#include <filesystem>
#include <system_error>
#include <vector>

namespace directory_index {

class file_walker {
public:
    /// The routing service must outlive the walker.
    explicit file_walker(IEventRouting& events) : events_(events) {}

    /// Returns why the folder itself cannot be opened; nothing was broadcast then.
    /// The folder may be a symbolic link.
    std::error_code walk(const std::filesystem::path& folder);

private:
    void visit_folder(const std::filesystem::path& folder,
                      std::filesystem::directory_iterator entries);
    void visit_entry(const std::filesystem::directory_entry& entry);
    void visit_file(const std::filesystem::directory_entry& file);
    void broadcast_unreadable(const std::filesystem::path& path, const std::error_code& reason);

    IEventRouting& events_;
    // Instead of recursion: folders may be nested deeply, and each open one would
    // take one of the process's few file descriptors.
    std::vector<std::filesystem::path> folders_to_visit_;
};

} // namespace directory_index
