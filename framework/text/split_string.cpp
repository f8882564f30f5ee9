#include "framework/text/split_string.h"

#include <algorithm>
#include <stdexcept>

namespace zel::text {

namespace {

std::vector<std::string> enclosed_pieces(std::string_view text, std::string_view delimiters,
                                         char enclose) {
    std::vector<std::string> pieces(1);
    bool inside = false;
    for (const char c : text) {
        if (c == enclose)
            inside = !inside;
        else if (!inside && delimiters.find(c) != std::string_view::npos)
            pieces.emplace_back();
        else
            pieces.back() += c;
    }
    return pieces;
}

std::vector<std::string> plain_pieces(std::string_view text, std::string_view delimiters) {
    std::vector<std::string> pieces;
    for_each_piece(text, delimiters, [&](std::string_view piece) {
        pieces.emplace_back(piece);
        return true;
    });
    return pieces;
}

} // namespace

std::vector<std::string> split_string(std::string_view text, std::string_view delimiters,
                                      empty_pieces empty, repeated_pieces repeated, char enclose) {
    if (enclose != '\0' && delimiters.find(enclose) != std::string_view::npos)
        throw std::invalid_argument("enclose char presented in delimiters");
    std::vector<std::string> pieces = enclose == '\0' ? plain_pieces(text, delimiters)
                                                      : enclosed_pieces(text, delimiters, enclose);
    if (empty == empty_pieces::drop)
        std::erase(pieces, std::string());
    if (repeated == repeated_pieces::drop) {
        auto kept = pieces.begin();
        for (auto& piece : pieces)
            if (std::find(pieces.begin(), kept, piece) == kept) {
                if (&*kept != &piece)
                    *kept = std::move(piece);
                ++kept;
            }
        pieces.erase(kept, pieces.end());
    }
    return pieces;
}

} // namespace zel::text
