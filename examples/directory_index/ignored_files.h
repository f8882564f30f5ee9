// What a folder's .gitignore says is not worth looking at.
//
// Of the patterns that git knows, these are understood:
//
//     name, *.ext, nam?   whatever has such a name, wherever it lies
//     /name, a/b          the same by its path from the indexed folder on
//     name/               folders only
//
// A line with "!", "[", "\" or "**" is passed over. Only the file in the indexed folder itself is
// read. Git's own ".git" is left out as well.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace directory_index {

class ignored_files {
public:
    /// Leaves out nothing.
    ignored_files() = default;
    /// Reads the folder's .gitignore, if there is one.
    explicit ignored_files(const std::string& folder);

    /// Whether something in the folder is left out, because of its own path or that of a folder
    /// around it. `path` begins as the folder was given.
    bool contains(std::string_view path, bool is_folder) const;

    /// The lines that were passed over.
    const std::vector<std::string>& not_understood() const noexcept { return not_understood_; }

private:
    struct pattern {
        std::string text;
        bool is_path = false; // from the folder on
        bool folders_only = false;
    };

    void add(std::string line);
    bool names(std::string_view path, bool is_folder) const;

    std::string folder_;
    std::vector<pattern> patterns_;
    std::vector<std::string> not_understood_;
};

} // namespace directory_index
