#include "framework/event_routing/src/event_routing/routing/match_records.h"
#include "framework/event_routing/src/event_routing/routing/retirable.h"
#include "platform/src/watched_thread_test.h"

#include <deque>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <unordered_set>

namespace zel::event_routing::impl {
namespace {

struct matches final : matches_of_text {
    using matches_of_text::matches_of_text;
    std::size_t size() const noexcept override { return handlers; }
    bool contains(const retirable_base&) const noexcept override { return false; }

    std::size_t handlers = 1;
};

class MatchRecords : public testing::Test {
protected:
    std::shared_ptr<matches> remembered(const std::string& text, std::uint64_t generation,
                                        std::size_t handlers = 1) {
        const auto made = std::make_shared<matches>(text, generation);
        made->handlers = handlers;
        records.remember(made);
        return made;
    }
    const matches* recalled(const std::string& text, std::uint64_t generation) {
        message_scope message(*threads);
        return records.recall(message, text, generation);
    }

    const std::shared_ptr<thread_records> threads = thread_records::shared();
    match_records<matches> records{*threads};
};

TEST_F(MatchRecords, HoldForOneGeneration) {
    const auto old = remembered("a.b", 1);
    EXPECT_EQ(recalled("a.b", 1), old.get());
    EXPECT_EQ(recalled("a.b", 2), nullptr);
    EXPECT_EQ(recalled("a", 1), nullptr);

    const auto fresh = remembered("a.b", 2);
    records.remember(old); // of one who began before the change and was slow
    EXPECT_EQ(recalled("a.b", 2), fresh.get());
    remembered("large", 2, 1'000'000);
    EXPECT_EQ(recalled("large", 2), nullptr);
}

// While a message uses them, also one inside of another, and until its frame names others.
TEST_F(MatchRecords, KeepWhatWasReplacedWhileAFrameNamesIt) {
    std::weak_ptr<matches> named = remembered("a", 1), used_before = remembered("b", 1);
    std::optional<message_scope> outer;
    outer.emplace(*threads);
    ASSERT_EQ(records.recall(*outer, "a", 1), named.lock().get());
    EXPECT_EQ(recalled("b", 1), used_before.lock().get());
    for (std::uint64_t generation = 2; generation < 200; ++generation) {
        remembered("a", generation);
        remembered("b", generation);
    }
    EXPECT_FALSE(named.expired());
    EXPECT_FALSE(used_before.expired()) << "the next message like that one has it at hand";
    EXPECT_NE(recalled("b", 199), nullptr);
    outer.reset();
    EXPECT_EQ(recalled("a", 1), named.lock().get());
    EXPECT_NE(recalled("a", 199), named.lock().get());
    for (std::uint64_t generation = 200; generation < 400; ++generation)
        remembered("b", generation);
    EXPECT_TRUE(used_before.expired());
    EXPECT_TRUE(named.expired());
}

TEST_F(MatchRecords, KeepABoundedNumberAndLetNewOnesIn) {
    constexpr int walked = 50'000;
    const auto text = [](int i) { return "path." + std::to_string(i); };
    std::vector<std::weak_ptr<matches>> all;
    for (int i = 0; i < walked; ++i)
        all.push_back(remembered(text(i), 1));
    int count = 0, late = 0, alive = 0;
    for (int i = 0; i < walked; ++i) {
        const auto* const one = recalled(text(i), 1);
        count += one != nullptr;
        late += one && i >= 20'000;
        alive += !all.at(std::size_t(i)).expired();
        ASSERT_TRUE(!one || one == all.at(std::size_t(i)).lock().get()) << i;
    }
    EXPECT_EQ(count, 16'384);
    EXPECT_GT(late, 1'000);
    EXPECT_LE(alive, 16'384 + 32);
}

// Those who look walk through tables that are being changed, moved and left behind.
TEST_F(MatchRecords, AreFoundWholeWhileOthersReplaceThem) {
    std::atomic<bool> ends{false};
    std::atomic<std::uint64_t> found{0};
    std::vector<std::jthread> readers;
    for (int t = 0; t < 2; ++t)
        readers.emplace_back([&] {
            for (std::uint64_t i = 0; !ends; ++i) {
                const auto text = std::to_string(i % 400);
                message_scope message(*threads);
                const auto* const one = records.recall(message, text, 7);
                if (!one)
                    continue;
                ++found;
                ASSERT_EQ(one->text, text);
            }
        });
    for (int round = 0; round < 200 || found < 1000; ++round)
        for (int i = 0; i < 400; ++i)
            remembered(std::to_string(i), 7);
    ends = true;
}

// A removal looks into the lists of all services, and threads name what they used last. A
// service that ends must not take its lists along under such a look, nor leave them named.
TEST_F(MatchRecords, AreNotGivenBackWhileARemovalLooksIntoThem) {
    struct slow_matches final : matches_of_text {
        using matches_of_text::matches_of_text;
        std::size_t size() const noexcept override { return 1; }
        bool contains(const retirable_base&) const noexcept override {
            looks->set();
            go_on->wait();
            return false;
        }
        platform::signal* looks = nullptr;
        platform::signal* go_on = nullptr;
    };
    platform::signal looks, go_on, named, left, ended, sender_may_end;
    auto service = std::make_unique<match_records<slow_matches>>(*threads);
    const auto made = std::make_shared<slow_matches>("a", 1);
    made->looks = &looks;
    made->go_on = &go_on;
    service->remember(made);
    std::jthread sender([&] {
        {
            message_scope message(*threads);
            EXPECT_NE(service->recall(message, "a", 1), nullptr);
            named.set();
            EXPECT_TRUE(looks.comes());
        }
        left.set();
        EXPECT_TRUE(sender_may_end.comes());
    });
    ASSERT_TRUE(named.comes());
    std::jthread remover([&] { retirable<int>(1).retire(*threads); });
    ASSERT_TRUE(left.comes());
    platform::watched_thread ending([&] {
        service.reset();
        ended.set();
    });
    EXPECT_TRUE(ending.falls_asleep());
    EXPECT_FALSE(ended.wait(platform::milliseconds(0)));
    go_on.set();
    EXPECT_TRUE(ended.comes());
    // The sender, which is still there, names it no more.
    looks.reset();
    retirable<int>(2).retire(*threads);
    EXPECT_FALSE(looks.wait(platform::milliseconds(0)));
    EXPECT_EQ(made.use_count(), 1);
    sender_may_end.set();
}

// It stops at the first that has its handler, and where looking on takes longer than to do as if
// one had.
TEST_F(MatchRecords, AreNotAllLookedIntoByARemoval) {
    struct long_list final : handler_list_base {
        std::size_t size() const noexcept override { return 1000; }
        bool contains(const retirable_base&) const noexcept override {
            ++looks;
            return has_all;
        }
        mutable int looks = 0;
        bool has_all = false;
    } list;
    platform::signal named, may_end;
    std::jthread sender([&] {
        std::deque<message_scope> nested;
        for (int i = 0; i < 100; ++i)
            nested.emplace_back(*threads).frame().list.name_if(
                static_cast<handler_list_base*>(&list), this, [] { return true; });
        named.set();
        EXPECT_TRUE(may_end.comes());
    });
    ASSERT_TRUE(named.comes());
    retirable<int>(1).retire(*threads);
    EXPECT_LT(list.looks, 10);
    list.looks = 0;
    list.has_all = true;
    retirable<int>(2).retire(*threads);
    EXPECT_EQ(list.looks, 1);
    may_end.set();
}

// Of a hash whose constants are all known, such texts make one factor zero.
TEST(TextHash, DiffersForTextsChosenByItsConstants) {
    const auto bytes = [](std::uint64_t word) {
        return std::string(reinterpret_cast<const char*>(&word), sizeof word);
    };
    const std::string second = bytes(0xC2B2AE3D27D4EB4F);
    std::unordered_set<std::size_t> hashes;
    for (std::uint64_t i = 0; i < 1000; ++i) {
        hashes.insert(text_hash(bytes(i) + second));
        hashes.insert(text_hash(bytes(i) + second + "end"));
        hashes.insert(text_hash(bytes(i) + second + bytes(i ^ 12345) + second));
    }
    EXPECT_EQ(hashes.size(), 3000u);
}

// A part of a task may begin, on a thread that has sent messages, while its service ends.
TEST(NamedUse, StaysNamedWhileTheKeeperOfTheLastOneEnds) {
    const int keeper = 0, kept = 0, shared = 0;
    named_use named;
    std::atomic<bool> ends{false};
    std::jthread ending([&] {
        while (!ends)
            named.forget(&keeper);
    });
    for (int i = 0; i < 1'000'000 && !HasFailure(); ++i) {
        named.name_if(&kept, &keeper, [] { return true; });
        named.name_opaque(&shared);
        EXPECT_TRUE(named.is(&shared));
    }
    ends = true;
}

} // namespace
} // namespace zel::event_routing::impl
