#include "examples/directory_index/components/word_table.h"

#include <algorithm>

namespace directory_index {

namespace {

constexpr std::size_t shortest_word = 2;
constexpr std::size_t longest_word = 40; // longer ones are data rather than words

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool is_part_of_word(char c) {
    return is_letter(c) || (c >= '0' && c <= '9') || c == '_';
}

char lower_letter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The most frequent first, of the same frequency by name.
bool is_before(const std::pair<std::string, std::int64_t>& a,
               const std::pair<std::string, std::int64_t>& b) {
    return a.second != b.second ? a.second > b.second : a.first < b.first;
}

} // namespace

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), lower_letter);
    return text;
}

word_counts words_of(std::string_view text) {
    word_counts counts;
    std::string word;
    for (auto place = text.begin(); place != text.end();) {
        const auto begin = std::find_if(place, text.end(), is_part_of_word);
        place = std::find_if_not(begin, text.end(), is_part_of_word);
        const auto length = static_cast<std::size_t>(place - begin);
        if (length < shortest_word || length > longest_word || !is_letter(*begin))
            continue;
        word.resize(length);
        std::transform(begin, place, word.begin(), lower_letter);
        ++counts[word];
    }
    return counts;
}

void word_table::add(const std::string& path, const word_counts& counts) {
    auto& entry = *files_.try_emplace(path).first;
    entry.second.words.reserve(counts.size());
    for (const auto& [text, count] : counts) {
        auto known = words_.find(text);
        if (known == words_.end()) {
            if (is_full())
                continue;
            known = words_.try_emplace(text).first;
        }
        known->second.total += count;
        known->second.in.emplace_back(&entry, count);
        entry.second.words.push_back(&*known);
        all_words_ += count;
    }
}

void word_table::remove(const std::string& path) {
    const auto entry = files_.find(path);
    if (entry == files_.end())
        return;
    for (auto* const known : entry->second.words) {
        auto& [text, found] = *known;
        const auto here = std::find_if(found.in.begin(), found.in.end(),
                                       [&](const auto& in) { return in.first == &*entry; });
        found.total -= here->second;
        all_words_ -= here->second;
        *here = found.in.back(); // their order means nothing
        found.in.pop_back();
        if (found.in.empty())
            words_.erase(words_.find(text));
    }
    files_.erase(entry);
}

word_table::occurrences word_table::files_with(const std::string& text) const {
    occurrences files;
    if (const auto known = words_.find(text); known != words_.end())
        for (const auto& [entry, count] : known->second.in)
            files.emplace_back(entry->first, count);
    std::sort(files.begin(), files.end(), is_before);
    return files;
}

word_table::occurrences word_table::top(std::size_t most) const {
    occurrences all;
    all.reserve(words_.size());
    for (const auto& [text, found] : words_)
        all.emplace_back(text, found.total);
    const std::size_t shown = std::min(most, all.size());
    std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(shown), all.end(),
                      is_before);
    all.resize(shown);
    return all;
}

} // namespace directory_index
