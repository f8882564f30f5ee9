// Splitting texts at delimiter characters.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel::text {

/// Calls `use` with every piece between delimiters, in order; k delimiters give
/// k + 1 pieces, possibly empty. Copies nothing. `use` returns whether to go on.
template <class Use>
void for_each_piece(std::string_view text, std::string_view delimiters, Use&& use) {
    for (;;) {
        // One delimiter is the usual case and much faster to look for.
        const auto end =
            delimiters.size() == 1 ? text.find(delimiters.front()) : text.find_first_of(delimiters);
        if (!use(text.substr(0, end)) || end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

enum class empty_pieces : bool { drop, keep };
enum class repeated_pieces : bool { keep, drop };

/// The pieces in order of appearance. Between two enclose characters delimiters
/// are ordinary text; the enclose characters themselves are dropped. Throws
/// std::invalid_argument when the enclose character is a delimiter.
std::vector<std::string> split_string(std::string_view text, std::string_view delimiters,
                                      empty_pieces empty,
                                      repeated_pieces repeated = repeated_pieces::keep,
                                      char enclose = '\0');

} // namespace zel::text
