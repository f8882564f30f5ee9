#include "framework/event_routing/src/event_routing/routing/match_records.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

struct matches : matches_of_text {
    using matches_of_text::matches_of_text;
    std::size_t size() const noexcept { return handlers; }

    std::size_t handlers = 1;
};

std::shared_ptr<matches> remembered(match_records<matches>& records, const std::string& text,
                                    std::uint64_t generation, std::size_t handlers = 1) {
    const auto made = std::make_shared<matches>(text_key(text), generation);
    made->handlers = handlers;
    records.remember(made);
    return made;
}

TEST(MatchRecords, HoldForOneGeneration) {
    match_records<matches> records;
    const auto old = remembered(records, "a.b", 1);
    EXPECT_EQ(records.recall(text_key("a.b"), 1), old);
    EXPECT_EQ(records.recall(text_key("a.b"), 2), nullptr);
    EXPECT_EQ(records.recall(text_key("a"), 1), nullptr);

    const auto fresh = remembered(records, "a.b", 2);
    EXPECT_EQ(old.use_count(), 1) << "let go of";
    records.remember(old); // of one who began before the change and was slow
    EXPECT_EQ(records.recall(text_key("a.b"), 2), fresh);
    remembered(records, "large", 2, 1'000'000);
    EXPECT_EQ(records.recall(text_key("large"), 2), nullptr);
}

TEST(MatchRecords, KeepABoundedNumberAndLetNewOnesIn) {
    constexpr int walked = 50'000;
    const auto text = [](int i) { return "path." + std::to_string(i); };
    match_records<matches> records;
    std::vector<std::weak_ptr<matches>> all;
    for (int i = 0; i < walked; ++i)
        all.push_back(remembered(records, text(i), 1));
    int count = 0, late = 0;
    for (int i = 0; i < walked; ++i) {
        const auto one = records.recall(text_key(text(i)), 1);
        ASSERT_EQ(one, all.at(std::size_t(i)).lock()) << "kept but not found: " << i;
        count += one != nullptr;
        late += one && i >= 20'000;
    }
    EXPECT_EQ(count, 16'384);
    EXPECT_GT(late, 1'000);
}

} // namespace
} // namespace zel::event_routing::impl
