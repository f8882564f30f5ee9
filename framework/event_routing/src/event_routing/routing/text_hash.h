// A hash of short texts: paths and their subnodes.
//
// It is taken of the path of each message that differs from the thread's last one, and of every
// subnode on a walk through the map. Reads the text in words of eight bytes, the last of which
// may overlap, and folds the product of two of them into one. It differs from process to
// process, so that nobody can choose texts that have the same.
#pragma once

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

// Of the first factor something is left where the second is zero, as a text can make it.
inline std::uint64_t folded_product(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using wide = unsigned __int128;
    const wide product = static_cast<wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64) ^ a;
}

// Where this is loaded differs from process to process, and no text can tell.
inline constexpr char loaded_somewhere = 0;

} // namespace detail

/// The lowest bits depend on all bytes like the others, so a table may use them.
inline std::size_t text_hash(std::string_view text) noexcept {
    using detail::folded_product;
    using detail::word_at;
    // Odd numbers without a pattern.
    constexpr std::uint64_t first = 0x9E3779B97F4A7C15, second = 0xC2B2AE3D27D4EB4F;
    const char* at = text.data();
    std::size_t left = text.size();
    std::uint64_t mixed =
        first ^ left ^ reinterpret_cast<std::uintptr_t>(&detail::loaded_somewhere);
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
