// A hash of short texts: paths and their subnodes.
//
// It is taken of the path of each message that differs from the thread's last one, and of every
// subnode on a walk through the map. Reads the text in words of eight bytes, the last of which
// may overlap, and folds the product of two of them into one. Both factors have something of the
// process in them, so that nobody can choose texts that have the same hash.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zel::event_routing::impl {

namespace detail {

template <class Word>
std::uint64_t word_at(const char* place) noexcept {
    Word word;
    std::memcpy(&word, place, sizeof word);
    return word;
}

// Where b happens to be zero, a is left, so what came before still counts.
inline std::uint64_t folded_product(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using wide = unsigned __int128;
    const wide product = static_cast<wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64) ^ a;
}

// Its address is drawn when the process starts; whoever chooses texts does not know it.
inline constexpr char loaded_somewhere = 0;

} // namespace detail

/// A table may use the lowest bits alone.
inline std::size_t text_hash(std::string_view text) noexcept {
    using detail::folded_product;
    using detail::word_at;
    // Odd numbers without a pattern.
    constexpr std::uint64_t first = 0x9E3779B97F4A7C15, second_known = 0xC2B2AE3D27D4EB4F;
    const std::uint64_t drawn = reinterpret_cast<std::uintptr_t>(&detail::loaded_somewhere);
    const std::uint64_t second = second_known ^ std::rotl(drawn, 29);
    const char* at = text.data();
    std::size_t left = text.size();
    std::uint64_t mixed = first ^ left ^ drawn;
    for (; left > 16; at += 16, left -= 16)
        mixed = folded_product(word_at<std::uint64_t>(at) ^ mixed,
                               word_at<std::uint64_t>(at + 8) ^ second);
    std::uint64_t begin = 0, end = 0;
    if (left >= 8) {
        begin = word_at<std::uint64_t>(at);
        end = word_at<std::uint64_t>(at + left - 8);
    } else if (left >= 4) {
        begin = word_at<std::uint32_t>(at);
        end = word_at<std::uint32_t>(at + left - 4);
    } else if (left > 0) {
        begin = word_at<std::uint8_t>(at) | word_at<std::uint8_t>(at + left / 2) << 8;
        end = word_at<std::uint8_t>(at + left - 1);
    }
    return folded_product(begin ^ mixed, end ^ second);
}

} // namespace zel::event_routing::impl
