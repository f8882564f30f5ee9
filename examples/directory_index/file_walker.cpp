#include "examples/directory_index/file_walker.h"

#include "examples/directory_index/file_kind.h"
#include "examples/directory_index/paths.h"

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

std::error_code file_walker::walk(const fs::path& folder) {
    std::error_code failure;
    fs::directory_iterator entries(folder, failure);
    if (failure)
        return failure;
    visit_folder(folder, std::move(entries));
    while (!folders_to_visit_.empty()) {
        const fs::path next = std::move(folders_to_visit_.back());
        folders_to_visit_.pop_back();
        entries = fs::directory_iterator(next, failure);
        if (failure)
            broadcast_unreadable(next, failure);
        else
            visit_folder(next, std::move(entries));
    }
    events_.BroadcastEvent(paths::walk_ended, nullptr, {}, nullptr);
    return {};
}

void file_walker::visit_folder(const fs::path& folder, fs::directory_iterator entries) {
    std::error_code failure;
    for (; entries != fs::directory_iterator(); entries.increment(failure))
        visit_entry(*entries);
    if (failure)
        broadcast_unreadable(folder, failure);
}

void file_walker::visit_entry(const fs::directory_entry& entry) {
    std::error_code failure;
    // Links first: the other questions are answered for a link's target.
    if (entry.is_symlink(failure))
        return;
    if (entry.is_directory(failure))
        folders_to_visit_.push_back(entry.path());
    else if (entry.is_regular_file(failure))
        visit_file(entry);
    else if (failure)
        broadcast_unreadable(entry.path(), failure);
}

void file_walker::visit_file(const fs::directory_entry& file) {
    std::error_code failure;
    const auto size = static_cast<std::int64_t>(file.file_size(failure));
    if (!failure)
        failure = try_to_open(file.path());
    if (failure) {
        broadcast_unreadable(file.path(), failure);
        return;
    }
    routing_parameters parameters;
    parameters[parameter::path] = file.path().string();
    parameters[parameter::size] = size;
    const std::string name = file.path().filename().string();
    events_.BroadcastEvent(paths::found + extension_of(name) + ";" + paths::size +
                               magnitude_of(size),
                           nullptr, parameters, nullptr);
}

void file_walker::broadcast_unreadable(const fs::path& path, const std::error_code& reason) {
    routing_parameters parameters;
    parameters[parameter::path] = path.string();
    parameters[parameter::reason] = reason.message();
    events_.BroadcastEvent(paths::unreadable, nullptr, parameters, nullptr);
}

} // namespace directory_index
