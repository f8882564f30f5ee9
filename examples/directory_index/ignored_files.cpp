#include "examples/directory_index/ignored_files.h"

#include <algorithm>
#include <fstream>

namespace directory_index {

namespace {

// "*" is any text and "?" any character, neither with a slash in it.
bool matches(std::string_view pattern, std::string_view text) {
    // Where to go on after the last star: it takes one character more each time.
    std::size_t star = std::string_view::npos, taken = 0, p = 0, t = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            taken = t;
        } else if (p < pattern.size() &&
                   (pattern[p] == text[t] || (pattern[p] == '?' && text[t] != '/'))) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos && text[taken] != '/') {
            p = star + 1;
            t = ++taken;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

} // namespace

ignored_files::ignored_files(const std::string& folder)
    : folder_(folder.ends_with('/') ? folder : folder + "/") {
    add(".git");
    std::ifstream lines(folder_ + ".gitignore");
    for (std::string line; std::getline(lines, line);)
        add(line);
}

void ignored_files::add(std::string line) {
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty() || line.starts_with('#'))
        return;
    if (line.find_first_of("![\\") != std::string::npos || line.find("**") != std::string::npos) {
        not_understood_.push_back(line);
        return;
    }
    pattern added;
    added.folders_only = line.ends_with('/');
    if (added.folders_only)
        line.pop_back();
    added.is_path = line.find('/') != std::string::npos;
    added.text = line.substr(line.starts_with('/') ? 1 : 0);
    patterns_.push_back(std::move(added));
}

bool ignored_files::contains(std::string_view path, bool is_folder) const {
    if (patterns_.empty() || !path.starts_with(folder_))
        return false;
    path.remove_prefix(folder_.size());
    for (auto end = path.find('/'); end != std::string_view::npos; end = path.find('/', end + 1))
        if (names(path.substr(0, end), true))
            return true;
    return names(path, is_folder);
}

bool ignored_files::names(std::string_view path, bool is_folder) const {
    const auto name = path.substr(path.find_last_of('/') + 1); // all of it without a slash
    return std::any_of(patterns_.begin(), patterns_.end(), [&](const pattern& one) {
        return (is_folder || !one.folders_only) && matches(one.text, one.is_path ? path : name);
    });
}

} // namespace directory_index
