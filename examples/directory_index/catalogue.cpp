#include "examples/directory_index/catalogue.h"

#include "examples/directory_index/file_kind.h"
#include "examples/directory_index/paths.h"

#include <filesystem>
#include <utility>

namespace directory_index {

namespace {

std::string extension_of_path(const std::string& path) {
    return extension_of(std::filesystem::path(path).filename().string());
}

routing_parameters about(const std::string& path) {
    routing_parameters parameters;
    parameters[parameter::path] = path;
    return parameters;
}

} // namespace

void catalogue::found(const std::string& path, std::int64_t size) {
    remember(path, size);
    auto parameters = about(path);
    parameters[parameter::size] = size;
    events_.BroadcastEvent(paths::found + extension_of_path(path) + ";" + paths::size +
                               magnitude_of(size),
                           nullptr, parameters, nullptr);
}

void catalogue::unreadable(const std::string& path, const std::string& reason) {
    remember(path, std::nullopt);
    auto parameters = about(path);
    parameters[parameter::reason] = reason;
    events_.BroadcastEvent(paths::unreadable, nullptr, parameters, nullptr);
}

void catalogue::remember(const std::string& path, std::optional<std::int64_t> size) {
    if (remembers_ == memory::all)
        told_[path] = size;
}

bool catalogue::forget(const std::string& path) {
    const auto entry = told_.find(path);
    if (entry == told_.end())
        return false;
    take_back(entry);
    return true;
}

std::size_t catalogue::forget_below(const std::string& folder) {
    std::size_t count = forget(folder) ? 1 : 0;
    const std::string inside = folder.ends_with('/') ? folder : folder + "/";
    for (auto entry = told_.lower_bound(inside);
         entry != told_.end() && entry->first.starts_with(inside); ++count)
        entry = take_back(entry);
    return count;
}

catalogue::told::iterator catalogue::take_back(told::iterator entry) {
    const auto& [path, size] = *entry;
    auto parameters = about(path);
    std::string event = paths::unreadable_gone;
    if (size) {
        parameters[parameter::size] = *size;
        event = paths::gone + extension_of_path(path);
    }
    const auto next = told_.erase(entry);
    events_.BroadcastEvent(event, nullptr, parameters, nullptr);
    return next;
}

} // namespace directory_index
