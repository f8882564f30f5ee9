// Walks a folder and tells the catalogue what it meets.
//
// Every regular file below the folder is either found, or unreadable when it cannot be
// sized or opened. Symbolic links are not followed; what is neither file nor folder is not
// touched. The order is that of the file system.
#pragma once

#include "examples/directory_index/catalogue.h"
#include "examples/directory_index/ignored_files.h"

#include <platform/event.h>
#include <platform/folder_watch.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace directory_index {

class file_walker {
public:
    /// The folders that a walk comes to are added to `watch`, if there is one. Both must
    /// outlive the walker. What is ignored is neither told of nor watched.
    file_walker(catalogue& told, zel::platform::folder_watch* watch, ignored_files ignored)
        : told_(told), watch_(watch), ignored_(std::move(ignored)) {}

    /// Returns why the folder itself cannot be opened; nothing was told then. The folder
    /// may be a symbolic link. Ends early once `stop`, if there is one, is signalled.
    std::error_code walk(const std::filesystem::path& folder, zel::platform::event* stop);

    /// What now lies at a path below the folder, if it is a file.
    void visit(const std::filesystem::path& file);

    /// Why some folder could not be watched; nothing when all are.
    struct unwatched_folder {
        std::string path;
        std::error_code reason;
    };
    const std::optional<unwatched_folder>& first_unwatched() const noexcept {
        return first_unwatched_;
    }

private:
    std::error_code visit_folder(const std::filesystem::path& folder);
    void visit_entry(const std::filesystem::directory_entry& entry);
    void visit_file(const std::filesystem::directory_entry& file);
    void unreadable(const std::filesystem::path& path, const std::error_code& reason);

    catalogue& told_;
    zel::platform::event* stop_ = nullptr; // of the walk that goes on
    zel::platform::folder_watch* watch_;
    const ignored_files ignored_;
    std::optional<unwatched_folder> first_unwatched_;
    // Instead of recursion: folders may be nested deeply, and each open one would
    // take one of the process's few file descriptors.
    std::vector<std::filesystem::path> folders_to_visit_;
};

} // namespace directory_index
