#include "framework/event_routing/src/event_routing/match_records.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

struct matches : matches_of_text {
    using matches_of_text::matches_of_text;
    std::size_t size() const noexcept { return handlers; }

    std::size_t handlers = 1;
};

std::shared_ptr<matches> made(const std::string& text, std::uint64_t generation) {
    return std::make_shared<matches>(text_key(text), generation);
}

TEST(MatchRecords, HoldForOneGeneration) {
    match_records<matches> records;
    const auto old = made("a.b", 1);
    records.remember(old);
    EXPECT_EQ(records.recall(text_key("a.b"), 1), old);
    EXPECT_EQ(records.recall(text_key("a.b"), 2), nullptr);
    EXPECT_EQ(records.recall(text_key("a"), 1), nullptr);

    const auto fresh = made("a.b", 2);
    records.remember(fresh);
    EXPECT_EQ(old.use_count(), 1) << "let go of";
    records.remember(old); // of one who began before the change and was slow
    EXPECT_EQ(records.recall(text_key("a.b"), 2), fresh);

    const auto large = made("c", 2);
    large->handlers = 1'000'000;
    records.remember(large);
    EXPECT_EQ(records.recall(text_key("c"), 2), nullptr);
}

TEST(MatchRecords, KeepABoundedNumberAndLetNewOnesIn) {
    constexpr int walked = 50'000;
    match_records<matches> records;
    std::vector<std::weak_ptr<matches>> all;
    for (int i = 0; i < walked; ++i) {
        const auto one = made("path." + std::to_string(i), 1);
        records.remember(one);
        all.push_back(one);
    }
    int remembered = 0;
    int late = 0;
    for (int i = 0; i < walked; ++i) {
        const auto one = records.recall(text_key("path." + std::to_string(i)), 1);
        ASSERT_EQ(one, all[static_cast<std::size_t>(i)].lock()) << "kept but not found: " << i;
        remembered += one != nullptr;
        late += one && i >= 20'000;
    }
    EXPECT_EQ(remembered, 16'384);
    EXPECT_GT(late, 1'000);
}

} // namespace
} // namespace zel::event_routing::impl
