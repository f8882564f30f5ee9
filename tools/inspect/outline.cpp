#include "tools/inspect/outline.h"

#include "framework/text/split_string.h"

#include <algorithm>
#include <set>

namespace inspect {

namespace {

void mark_last_rows(std::vector<row>& rows) {
    std::set<std::size_t> seen; // parents that have a later row
    for (auto place = rows.rbegin(); place != rows.rend(); ++place)
        place->is_last = seen.insert(place->parent).second;
}

} // namespace

std::vector<row> outline(const handler_texts& handlers) {
    std::vector<row> rows;
    std::vector<std::size_t> open; // rows of the path's subnodes so far
    for (const auto& [path, description] : handlers) {
        const auto subnodes = zel::text::split_string(path, ".", zel::text::empty_pieces::keep);
        std::size_t shared = 0;
        while (shared < std::min(open.size(), subnodes.size()) &&
               rows[open[shared]].text == subnodes[shared])
            ++shared;
        open.resize(shared);
        const auto parent = [&] { return open.empty() ? row::no_parent : open.back(); };
        for (; shared < subnodes.size(); ++shared) {
            rows.push_back({shared, false, subnodes[shared], parent()});
            open.push_back(rows.size() - 1);
        }
        rows.push_back({subnodes.size(), true, description, parent()});
    }
    mark_last_rows(rows);
    return rows;
}

} // namespace inspect
