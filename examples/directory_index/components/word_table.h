// Which words stand in which files, and how often.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace directory_index {

using word_counts = std::unordered_map<std::string, std::int64_t>;

/// The words of a text with how often each occurs: letters, digits and "_" that begin with
/// a letter, of 2 to 40 bytes, ASCII letters in lower case. Bytes beyond ASCII count as
/// letters, so words of every language in UTF-8 stay whole.
word_counts words_of(std::string_view text);

/// ASCII letters in lower case, as words are kept.
std::string lower(std::string text);

class word_table {
public:
    /// At most so many different words are kept; more of them are left out.
    explicit word_table(std::size_t most_words) : most_words_(most_words) {}

    /// The file must not be in the table.
    void add(const std::string& path, const word_counts& counts);
    /// Does nothing for a file that is not in the table.
    void remove(const std::string& path);

    using occurrences = std::vector<std::pair<std::string, std::int64_t>>;
    /// The files with the word, those in which it is most frequent first.
    occurrences files_with(const std::string& text) const;
    /// The most frequent words.
    occurrences top(std::size_t most) const;

    std::size_t files() const noexcept { return files_.size(); }
    std::size_t distinct_words() const noexcept { return words_.size(); }
    std::int64_t all_words() const noexcept { return all_words_; }
    /// Whether there were more different words than are kept.
    bool is_full() const noexcept { return words_.size() >= most_words_; }

private:
    struct word;
    using words_by_text = std::unordered_map<std::string, word>;
    struct file;
    using files_by_path = std::unordered_map<std::string, file>;
    struct word {
        std::int64_t total = 0;
        std::vector<std::pair<const files_by_path::value_type*, std::int64_t>> in;
    };
    struct file {
        std::vector<words_by_text::value_type*> words; // so that removing it looks at no other word
    };

    std::size_t most_words_;
    std::int64_t all_words_ = 0;
    words_by_text words_;
    files_by_path files_;
};

} // namespace directory_index
