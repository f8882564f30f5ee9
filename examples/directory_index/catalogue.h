// What the components were told of each file, so that it can be taken back.
#pragma once

#include "examples/directory_index/component.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace directory_index {

class catalogue {
public:
    enum class memory { none, all };

    /// The routing service must outlive the catalogue. Without memory nothing can be taken back.
    catalogue(IEventRouting& events, memory remembers) : events_(events), remembers_(remembers) {}

    void found(const std::string& path, std::int64_t size);
    void unreadable(const std::string& path, const std::string& reason);

    /// Takes back what was told of this path; false when nothing was.
    bool forget(const std::string& path);
    /// The same for a folder and all below it; how much that was.
    std::size_t forget_below(const std::string& folder);

    bool knows(const std::string& path) const { return told_.contains(path); }
    std::size_t size() const noexcept { return told_.size(); }

private:
    using told = std::map<std::string, std::optional<std::int64_t>>;

    void remember(const std::string& path, std::optional<std::int64_t> size);
    told::iterator take_back(told::iterator entry);

    IEventRouting& events_;
    const memory remembers_;
    told told_; // the size of each file, none for what is unreadable
};

} // namespace directory_index
