#include "examples/directory_index/file_walker.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

namespace directory_index {

namespace fs = std::filesystem;

namespace {

std::error_code try_to_open(const fs::path& file) {
    errno = 0;
    std::FILE* const stream = std::fopen(file.c_str(), "rb");
    if (!stream)
        return {errno, std::generic_category()};
    std::fclose(stream);
    return {};
}

} // namespace

std::error_code file_walker::walk(const fs::path& folder, zel::platform::event* stop) {
    stop_ = stop;
    if (ignored_.contains(folder.string(), true))
        return {};
    if (const auto failure = visit_folder(folder))
        return failure;
    while (!folders_to_visit_.empty()) {
        const fs::path next = std::move(folders_to_visit_.back());
        folders_to_visit_.pop_back();
        if (const auto failure = visit_folder(next))
            unreadable(next, failure);
    }
    return {};
}

// Returns why the folder cannot be opened.
std::error_code file_walker::visit_folder(const fs::path& folder) {
    using zel::platform::milliseconds;
    std::error_code failure;
    // Before the first entry is read: what changes from now on is told.
    const auto unwatched = watch_ ? watch_->add(folder.string()) : std::error_code();
    fs::directory_iterator entries(folder, failure);
    if (failure)
        return failure;
    if (unwatched && !first_unwatched_)
        first_unwatched_ = {folder.string(), unwatched};
    for (; entries != fs::directory_iterator(); entries.increment(failure)) {
        if (stop_ && stop_->wait(milliseconds::zero())) {
            folders_to_visit_.clear();
            return {};
        }
        visit_entry(*entries);
    }
    if (failure)
        unreadable(folder, failure);
    return {};
}

void file_walker::visit_entry(const fs::directory_entry& entry) {
    std::error_code failure;
    // Links first: the other questions are answered for a link's target.
    if (entry.is_symlink(failure))
        return;
    const bool is_folder = entry.is_directory(failure);
    if (ignored_.contains(entry.path().string(), is_folder))
        return;
    if (is_folder)
        folders_to_visit_.push_back(entry.path());
    else if (entry.is_regular_file(failure))
        visit_file(entry);
    else if (failure)
        unreadable(entry.path(), failure);
}

void file_walker::visit(const fs::path& file) {
    std::error_code failure;
    if (fs::symlink_status(file, failure).type() != fs::file_type::regular ||
        ignored_.contains(file.string(), false))
        return;
    const fs::directory_entry entry(file, failure);
    if (!failure)
        visit_file(entry);
}

void file_walker::visit_file(const fs::directory_entry& file) {
    std::error_code failure;
    const auto size = static_cast<std::int64_t>(file.file_size(failure));
    if (!failure)
        failure = try_to_open(file.path());
    if (failure)
        unreadable(file.path(), failure);
    else
        told_.found(file.path().string(), size);
}

void file_walker::unreadable(const fs::path& path, const std::error_code& reason) {
    told_.unreadable(path.string(), reason.message());
}

} // namespace directory_index
