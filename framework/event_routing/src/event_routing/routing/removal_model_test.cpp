// Searches all interleavings of the protocol in retirable.h on processors that delay stores:
// one message that calls two handlers, an asynchronous part of the first, and a removal of
// either. A broken protocol must be found to be one.
#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

// What the threads share. A store goes into a buffer of its thread first; others see it when
// it leaves that, in order.
enum place : std::uint8_t {
    message_names,
    message_target,
    part_names,
    part_target,
    first_retired,
    second_retired,
    places
};
enum thread : std::uint8_t { message, part, first_removal, second_removal, threads };

constexpr std::uint8_t nothing = 0, first = 1, second = 2; // handlers

struct state {
    struct stored {
        std::uint8_t where, what;
    };
    std::array<std::uint8_t, places> memory{};
    std::array<std::array<stored, 6>, threads> buffer{}; // has room for all of a thread
    std::array<std::uint8_t, threads> buffered{};
    std::array<std::uint8_t, threads> at{}; // which step comes next
    std::array<bool, 2> counted{};          // of the message and of the part
    std::array<std::uint8_t, 3> uses{};     // of each handler, like the next
    std::array<std::uint8_t, 3> awaited{};
    std::array<std::uint8_t, 3> destroyed{};
    std::array<bool, 3> drop_returned{};

    std::string key() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }
};
static_assert(std::is_trivially_copyable_v<state>);

struct protocol {
    bool has_heavy_barrier = true;
    bool looks_after_leaving = true;
    bool names_with_fence = true;
};

class search {
public:
    explicit search(protocol rules) : rules_(rules) {}

    // What can go wrong, or nothing.
    std::string fault() {
        visit(state());
        while (!open_.empty() && fault_.empty()) {
            const state s = open_.back();
            open_.pop_back();
            bool ended = true;
            for (std::uint8_t t = 0; t < threads; ++t) {
                if (s.buffered[t] > 0)
                    visit(flushed(s, t, 1));
                ended = step(s, t) && s.buffered[t] == 0 && ended;
            }
            if (ended && (s.destroyed[first] != 1 || s.destroyed[second] != 1))
                fault_ = "a callable is left or was destroyed twice";
        }
        return fault_;
    }
    std::size_t states() const { return seen_.size(); }

private:
    void visit(const state& s) {
        if (seen_.insert(s.key()).second)
            open_.push_back(s);
    }

    static state flushed(state s, std::uint8_t t, std::uint8_t stores) {
        for (std::uint8_t i = 0; i < stores; ++i)
            s.memory[s.buffer[t][i].where] = s.buffer[t][i].what;
        for (std::uint8_t i = stores; i < s.buffered[t]; ++i)
            s.buffer[t][i - stores] = s.buffer[t][i];
        s.buffered[t] = static_cast<std::uint8_t>(s.buffered[t] - stores);
        for (std::size_t i = s.buffered[t]; i < s.buffer[t].size(); ++i)
            s.buffer[t][i] = {};
        return s;
    }
    static state fenced(const state& s, std::uint8_t t) { return flushed(s, t, s.buffered[t]); }

    static void store(state& s, std::uint8_t t, place where, std::uint8_t what) {
        s.buffer[t][s.buffered[t]++] = {where, what};
    }
    static place retired(std::uint8_t handler) {
        return handler == first ? first_retired : second_retired;
    }

    void use(const state& s, std::uint8_t t, std::uint8_t handler) {
        if (s.destroyed[handler])
            fault_ = "a destroyed callable runs";
        if (t == part && s.drop_returned[handler])
            fault_ = "an asynchronous part runs after the drop";
    }

    void end_use(state& s, std::uint8_t handler) {
        if (--s.uses[handler] == 0)
            ++s.destroyed[handler];
    }

    // Continues with all that may come next. True when the thread has ended.
    bool step(const state& s, std::uint8_t t) {
        return t < first_removal ? call(s, t) : remove(s, t);
    }

    bool call(const state& before, std::uint8_t t) {
        const place names = t == message ? message_names : part_names;
        const place target = t == message ? message_target : part_target;
        constexpr std::uint8_t steps = 6;
        const std::uint8_t calls = t == message ? 2 : 1;
        state s = before;
        const std::uint8_t at = s.at[t]++;
        if (at == 0) {
            store(s, t, names, first); // the message's list has both
            visit(rules_.names_with_fence ? fenced(s, t) : s);
            return false;
        }
        if (at > calls * steps + 1)
            return true;
        if (at == calls * steps + 1) {
            store(s, t, names, nothing);
            visit(s);
            return false;
        }
        const auto handler = static_cast<std::uint8_t>(first + (at - 1) / steps);
        const auto leave = static_cast<std::uint8_t>((handler - 1) * steps + 5);
        const auto next = static_cast<std::uint8_t>(handler * steps + 1);
        switch ((at - 1) % steps) {
        case 0:
            store(s, t, target, handler);
            break;
        case 1: // the store above is for another place, so this looks at the memory
            if (s.memory[retired(handler)])
                s.at[t] = leave;
            break;
        case 2:
        case 3: // begins and is about to end
            use(s, t, handler);
            break;
        case 4:
            store(s, t, target, nothing);
            break;
        case 5: // one step: under the guard, which is a fence, if it is retired
            if (s.memory[retired(handler)] && rules_.looks_after_leaving) {
                s = fenced(s, t);
                if (s.counted[t]) {
                    s.counted[t] = false;
                    if (t == part)
                        --s.awaited[handler];
                    end_use(s, handler);
                }
            }
            s.at[t] = next;
            break;
        }
        visit(s);
        return false;
    }

    bool remove(const state& before, std::uint8_t t) {
        const auto handler = t == first_removal ? first : second;
        state s = before;
        switch (s.at[t]++) {
        case 0:
            store(s, t, retired(handler), 1);
            s = fenced(s, t);
            break;
        case 1: {
            const bool is_named = s.memory[message_names] || s.memory[part_names] == handler;
            if (!is_named || !rules_.has_heavy_barrier)
                ++s.at[t];
            break;
        }
        case 2:
            for (std::uint8_t other = 0; other < threads; ++other)
                s = fenced(s, other);
            break;
        case 3:
            s.uses[handler] = 1;
            for (const auto& [caller, target] :
                 {std::pair{message, message_target}, std::pair{part, part_target}})
                if (s.memory[target] == handler) {
                    s.counted[caller] = true;
                    ++s.uses[handler];
                    s.awaited[handler] =
                        static_cast<std::uint8_t>(s.awaited[handler] + (caller == part));
                }
            break;
        case 4:
            if (s.awaited[handler])
                return false; // waits
            break;
        case 5:
            s.drop_returned[handler] = true;
            end_use(s, handler);
            break;
        default:
            return true;
        }
        visit(s);
        return false;
    }

    const protocol rules_;
    std::unordered_set<std::string> seen_;
    std::vector<state> open_;
    std::string fault_;
};

TEST(RemovalProtocol, HoldsInEveryInterleavingWithDelayedStores) {
    search whole{protocol()};
    EXPECT_EQ(whole.fault(), "");
    EXPECT_GT(whole.states(), 10'000u) << "all of them";
}

TEST(RemovalProtocol, NeedsEachOfItsFences) {
    EXPECT_NE(search({.has_heavy_barrier = false}).fault(), "");
    EXPECT_NE(search({.looks_after_leaving = false}).fault(), "");
    EXPECT_NE(search({.names_with_fence = false}).fault(), "");
}

} // namespace
