#include "examples/directory_index/components/word_table.h"

#include <gtest/gtest.h>

namespace {

using namespace directory_index;

TEST(WordTable, TakesWordsFromATextInLowerCase) {
    const std::string longest(40, 'x');
    EXPECT_EQ(words_of("The the_2 2nd a B-TREE " + longest + " " + longest + "y Straße the"),
              (word_counts{{"the", 2}, {"the_2", 1}, {"tree", 1}, {longest, 1}, {"straße", 1}}));
    EXPECT_TRUE(words_of("").empty());
}

TEST(WordTable, ForgetsAFileAsIfItHadNeverBeenThere) {
    word_table table(3);
    table.add("a", {{"one", 1}, {"two", 2}});
    table.add("b", {{"two", 5}, {"three", 1}});
    table.add("c", {{"four", 9}, {"one", 1}});
    EXPECT_TRUE(table.is_full());
    EXPECT_EQ(table.all_words(), 10) << "without what found no room";
    EXPECT_EQ(table.top(2), (word_table::occurrences{{"two", 7}, {"one", 2}}));
    EXPECT_EQ(table.files_with("two"), (word_table::occurrences{{"b", 5}, {"a", 2}}));
    EXPECT_TRUE(table.files_with("four").empty());

    table.remove("b");
    table.remove("not there");
    EXPECT_EQ(table.distinct_words(), 2u);
    EXPECT_EQ(table.files_with("two"), (word_table::occurrences{{"a", 2}}));
    table.remove("a");
    table.remove("c");
    EXPECT_EQ(table.files() + table.distinct_words(), 0u);
    EXPECT_EQ(table.all_words(), 0);
}

} // namespace
