// The handlers of a service as rows of a tree: one for each subnode, and below it one for
// each handler.
//
//     for (const row& r : outline(handlers))
//         std::cout << std::string(2 * r.depth, ' ') << r.text << '\n';
//
// Flat, because paths come from others and may have any number of subnodes.
#pragma once

#include "tools/inspect/services.h"

#include <cstddef>
#include <string>
#include <vector>

namespace inspect {

struct row {
    std::size_t depth = 0;
    bool is_handler = false; ///< else a subnode
    std::string text;        ///< a subnode's name or a handler's description
    std::size_t parent = no_parent;
    bool is_last = false; ///< of its parent's rows

    static constexpr std::size_t no_parent = static_cast<std::size_t>(-1);
};

/// Every parent stands before its rows. Handlers keep their order; paths that begin alike
/// share rows when they follow one another, as in an enumeration they do.
std::vector<row> outline(const handler_texts& handlers);

} // namespace inspect
