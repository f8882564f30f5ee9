// Searches all interleavings of the protocols in retirable.h and thread_records.h on
// processors that delay stores. A broken protocol must be found to be one.
//
// One thread sends two messages of a service, the second of which finds its list or snapshot
// named already. What they call is removed; meanwhile an asynchronous part runs on another
// thread, or the service replaces the list and ends, while the frame names something else.
#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using byte = std::uint8_t;

// What the threads share. A store goes into a buffer of its thread first; others see it when
// it leaves that, in order.
enum place : byte {
    sender_word, // of the sender's frame, like the next two
    sender_keeper,
    sender_target,
    part_word,
    part_target,
    first_retired,
    second_retired,
    table,             // which lists stand where messages find them
    messages_are_over, // of the service that ends
    places
};
enum thread : byte { sender, part, first_removal, second_removal, keeper, threads };

constexpr byte nothing = 0, first = 1, second = 2; // callables
constexpr byte awaited = 4;                        // with one that is called

// A word is a list, perhaps opaque, or one callable. A list also stands for the service that
// keeps it: the one that ends or the one that goes on.
constexpr byte opaque = 1, one = 2, ending = 4, living = 8;
constexpr byte both_lists = ending | living;
constexpr byte one_of(byte callable) {
    return static_cast<byte>(callable << 4 | one);
}

enum operation : byte {
    // Name a list that is remembered, or if it is not, one that the message makes itself.
    find_list,
    name_list,
    keep_list,
    look_again,
    unveil_list,
    name_own,
    keep_own,
    // Name something else.
    exchange_word,
    clear_keeper,
    // Call a callable of what is named.
    announce,
    look_whether_retired,
    begin,
    end,
    leave,
    look_after_leaving,
    end_message,
    end_messages,
    // Remove a callable.
    retire,
    look_at_names,
    heavy_barrier,
    count_uses,
    wait_for_awaited,
    end_removal,
    // Replace a list and end.
    take_out,
    destroy_unnamed,
    wait_for_messages,
    read_word,
    read_keeper,
    forget,
    destroy_list
};
struct step {
    operation what;
    byte about = nothing;
};
using program = std::vector<step>;
using programs = std::array<program, threads>;

program operator+(program all, const program& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}
program only(operation what) {
    return {step{what}};
}
program naming(byte list) {
    return {{find_list, list},   {name_list, list}, {keep_list, list}, {look_again, list},
            {unveil_list, list}, {name_own, list},  {keep_own, list}};
}
program naming_word(byte word) {
    return {{exchange_word, word}, {clear_keeper}};
}
program call(byte callable) {
    return {{announce, callable}, {look_whether_retired, callable},
            {begin, callable},    {end, callable},
            {leave, callable},    {look_after_leaving, callable}};
}
program removal(byte callable) {
    return {{retire, callable},     {look_at_names, callable},    {heavy_barrier},
            {count_uses, callable}, {wait_for_awaited, callable}, {end_removal, callable}};
}
program end_of_keeper() {
    return {{take_out},    {destroy_unnamed}, {wait_for_messages}, {read_word},
            {read_keeper}, {forget},          {destroy_list}};
}

struct state {
    struct stored {
        byte where, what;
    };
    std::array<byte, places> memory{};
    std::array<std::array<stored, 14>, threads> buffer{}; // has room for all of a thread
    std::array<byte, threads> buffered{};
    std::array<byte, threads> at{}; // which step comes next
    std::array<byte, 2> counted{};  // of the sender and of the part
    std::array<byte, 3> uses{};     // of each callable, like the next
    std::array<byte, 3> awaited_uses{};
    std::array<byte, 3> destroyed{};
    std::array<bool, 3> drop_returned{};
    byte read_list = nothing; // by the sender, without a reference
    byte seen_word = nothing; // by the keeper that ends, like the next
    byte seen_keeper = nothing;
    bool list_is_destroyed = false;

    std::string key() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }
};
static_assert(std::is_trivially_copyable_v<state>);

struct protocol {
    bool has_heavy_barrier = true;
    bool looks_after_leaving = true;
    bool names_with_fence = true;
    bool names_opaquely_first = true;
    bool looks_again = true;
    bool keeps_what_is_named = true;
    bool forgets = true;
    bool reads_word_before_keeper = true;
    bool retired_are_monitors = false; // in which snapshot one is, nobody knows
};

class search {
public:
    search(protocol rules, programs all) : rules_(rules), programs_(std::move(all)) {
        state begin;
        begin.memory[table] = both_lists;
        visit(begin);
        while (!open_.empty() && fault_.empty()) {
            const state s = open_.back();
            open_.pop_back();
            bool goes_on = false;
            for (byte t = 0; t < threads; ++t) {
                if (s.buffered[t] > 0)
                    visit(flushed(s, t, 1));
                const bool has_step = s.at[t] < programs_[t].size() && make_step(s, t);
                goes_on = goes_on || has_step || s.buffered[t] > 0;
            }
            if (!goes_on && !is_well(s))
                fault_ = "a thread waits for ever, or a callable is left or was destroyed twice";
        }
    }

    // What can go wrong, or nothing.
    const std::string& fault() const { return fault_; }
    std::size_t states() const { return seen_.size(); }

private:
    void visit(const state& s) {
        if (seen_.insert(s.key()).second)
            open_.push_back(s);
    }

    static state flushed(state s, byte t, byte stores) {
        for (byte i = 0; i < stores; ++i)
            s.memory[s.buffer[t][i].where] = s.buffer[t][i].what;
        for (byte i = stores; i < s.buffered[t]; ++i)
            s.buffer[t][i - stores] = s.buffer[t][i];
        s.buffered[t] = static_cast<byte>(s.buffered[t] - stores);
        for (std::size_t i = s.buffered[t]; i < s.buffer[t].size(); ++i)
            s.buffer[t][i] = {};
        return s;
    }
    static void fence(state& s, byte t) { s = flushed(s, t, s.buffered[t]); }

    static void store(state& s, byte t, place where, byte what) {
        s.buffer[t].at(s.buffered[t]++) = {where, what};
    }
    // A thread sees its own stores.
    static byte load(const state& s, byte t, place where) {
        for (byte i = s.buffered[t]; i > 0; --i)
            if (s.buffer[t][i - 1].where == where)
                return s.buffer[t][i - 1].what;
        return s.memory[where];
    }
    static place word(byte t) { return t == sender ? sender_word : part_word; }
    static place target(byte t) { return t == sender ? sender_target : part_target; }
    static place retired(byte callable) {
        return (callable & ~awaited) == first ? first_retired : second_retired;
    }

    bool is_well(const state& s) const {
        for (byte t = 0; t < threads; ++t)
            if (s.at[t] < programs_[t].size())
                return false;
        return s.destroyed[first] == !programs_[first_removal].empty() &&
               s.destroyed[second] == !programs_[second_removal].empty();
    }

    // Continues with what comes next. False when the thread waits.
    bool make_step(state s, byte t) {
        const step next = programs_[t][s.at[t]++];
        const bool goes_on = next.what >= take_out   ? end_keeper(s, next)
                             : next.what >= retire   ? remove(s, t, next)
                             : next.what >= announce ? call(s, t, next)
                                                     : name(s, t, next);
        if (goes_on)
            visit(s);
        return goes_on;
    }

    static void skip(state& s, byte t, byte steps) { s.at[t] = static_cast<byte>(s.at[t] + steps); }

    bool name(state& s, byte t, const step& next) {
        const byte list = next.about;
        switch (next.what) {
        case find_list:
            s.read_list = list;
            if (load(s, t, sender_keeper) == list && load(s, t, sender_word) == list)
                skip(s, t, 6); // it has stayed since the last message
            else if (!(s.memory[table] & list))
                skip(s, t, 4);
            break;
        case name_list:
            exchange(s, t, rules_.names_opaquely_first ? list | opaque : list);
            break;
        case keep_list:
            store(s, t, sender_keeper, list);
            break;
        case look_again:
            if (rules_.looks_again && !(s.memory[table] & list)) {
                store(s, t, sender_keeper, nothing);
                skip(s, t, 1);
            }
            break;
        case unveil_list:
            store(s, t, sender_word, list);
            skip(s, t, 2);
            break;
        case name_own: // a list that the message has made itself
            exchange(s, t, opaque);
            break;
        case exchange_word:
            exchange(s, t, next.about);
            break;
        default: // keep_own, clear_keeper
            s.read_list = nothing;
            store(s, t, sender_keeper, nothing);
        }
        return true;
    }
    void exchange(state& s, byte t, int to) {
        store(s, t, word(t), static_cast<byte>(to));
        if (rules_.names_with_fence)
            fence(s, t);
    }

    bool call(state& s, byte t, const step& next) {
        const auto callable = static_cast<byte>(next.about & ~awaited);
        switch (next.what) {
        case announce:
            if (t == sender && s.read_list == ending && s.list_is_destroyed)
                fault_ = "a destroyed list is read";
            store(s, t, target(t), next.about);
            break;
        case look_whether_retired: // the store above is for another place: looks at the memory
            if (s.memory[retired(callable)])
                skip(s, t, 2);
            break;
        case begin:
        case end:
            if (s.destroyed[callable])
                fault_ = "a destroyed callable runs";
            if (next.about & awaited && s.drop_returned[callable])
                fault_ = "an awaited call runs after the drop";
            break;
        case leave:
            store(s, t, target(t), nothing);
            break;
        case look_after_leaving: // one step: under the guard, which is a fence, if it is retired
            if (s.memory[retired(callable)] && rules_.looks_after_leaving) {
                fence(s, t);
                if (std::exchange(s.counted[t], byte(0))) {
                    if (next.about & awaited)
                        --s.awaited_uses[callable];
                    end_use(s, callable);
                }
            }
            break;
        case end_message:
            if (t == part || !load(s, t, sender_keeper))
                store(s, t, word(t), nothing);
            break;
        default:
            store(s, t, messages_are_over, 1);
        }
        return true;
    }

    static void end_use(state& s, byte callable) {
        if (--s.uses[callable] == 0)
            ++s.destroyed[callable];
    }

    bool remove(state& s, byte t, const step& next) {
        const byte callable = next.about;
        switch (next.what) {
        case retire:
            store(s, t, retired(callable), 1);
            fence(s, t);
            break;
        case look_at_names:
            if (!(names(s, sender_word, callable) || names(s, part_word, callable)) ||
                !rules_.has_heavy_barrier)
                skip(s, t, 1);
            break;
        case heavy_barrier:
            for (byte other = 0; other < threads; ++other)
                fence(s, other);
            break;
        case count_uses:
            s.uses[callable] = 1;
            for (const byte caller : {sender, part}) {
                const byte called = s.memory[target(caller)];
                if ((called & ~awaited) != callable)
                    continue;
                s.counted[caller] = 1;
                ++s.uses[callable];
                if (called & awaited)
                    ++s.awaited_uses[callable];
            }
            break;
        case wait_for_awaited:
            return s.awaited_uses[callable] == 0;
        default:
            s.drop_returned[callable] = true;
            end_use(s, callable);
        }
        return true;
    }
    bool names(const state& s, place frame, byte callable) {
        const byte word = s.memory[frame];
        if (rules_.retired_are_monitors || word == nothing || word & opaque)
            return word != nothing;
        if (word & one)
            return word == one_of(callable);
        if (word == ending && s.list_is_destroyed)
            fault_ = "a removal looks into a destroyed list";
        return true; // both lists have both
    }

    bool end_keeper(state& s, const step& next) {
        constexpr byte t = keeper;
        switch (next.what) {
        case take_out:
            store(s, t, table, living);
            fence(s, t);
            break;
        case destroy_unnamed:
            if ((s.memory[sender_word] & ~opaque) != ending || !rules_.keeps_what_is_named)
                s.list_is_destroyed = true;
            break;
        case wait_for_messages:
            return s.memory[messages_are_over];
        case read_word:
        case read_keeper:
            if ((next.what == read_word) == rules_.reads_word_before_keeper)
                s.seen_word = s.memory[sender_word];
            else
                s.seen_keeper = s.memory[sender_keeper];
            break;
        case forget:
            if (rules_.forgets && s.seen_keeper == ending && !(s.seen_word & (opaque | one)) &&
                s.seen_word == s.memory[sender_word])
                s.memory[sender_word] = nothing;
            break;
        default:
            s.list_is_destroyed = true;
        }
        return true;
    }

    const protocol rules_;
    const programs programs_;
    std::unordered_set<std::string> seen_;
    std::vector<state> open_;
    std::string fault_;
};

// Two messages of a service call the callables of a list or snapshot, which the second message
// finds named, and both callables are removed.
programs two_messages(byte list, byte waits) {
    const auto first_call = call(static_cast<byte>(first | waits));
    const auto second_call = call(static_cast<byte>(second | waits));
    programs all;
    all[sender] = naming(list) + first_call + second_call + only(end_message) + naming(list) +
                  second_call + only(end_message);
    all[first_removal] = removal(first);
    all[second_removal] = removal(second);
    return all;
}
// Meanwhile an asynchronous part of one runs on another thread.
programs messages_beside_a_part() {
    programs all = two_messages(living, nothing);
    all[part] = program{{exchange_word, one_of(first)}} + call(first | awaited) + only(end_message);
    return all;
}
// Meanwhile the service replaces the list, and ends after the messages, while the frame names
// what another call is made of.
programs messages_of_ending_service(byte waits, const program& naming_afterwards, byte called) {
    programs all = two_messages(ending, waits);
    all[sender] =
        all[sender] + only(end_messages) + naming_afterwards + call(called) + only(end_message);
    all[keeper] = end_of_keeper();
    return all;
}
programs ending_before_a_part() {
    return messages_of_ending_service(nothing, naming_word(one_of(second)), second | awaited);
}
programs ending_before_another_message() {
    return messages_of_ending_service(nothing, naming(living), second);
}
// A part has a reference to its snapshot, which may be of the service that ends.
programs ending_before_a_part_with_monitors(byte snapshot) {
    return messages_of_ending_service(awaited, naming_word(snapshot), second | awaited);
}

TEST(RemovalProtocol, HoldsInEveryInterleavingWithDelayedStores) {
    const struct {
        programs all;
        bool are_monitors = false;
    } scenes[] = {{messages_beside_a_part()},
                  {ending_before_a_part()},
                  {ending_before_another_message()},
                  {ending_before_a_part_with_monitors(ending | opaque), true}};
    for (const auto& scene : scenes) {
        const search whole({.retired_are_monitors = scene.are_monitors}, scene.all);
        EXPECT_EQ(whole.fault(), "");
        EXPECT_GT(whole.states(), 50'000u) << "all of them";
    }
}

TEST(RemovalProtocol, NeedsEachOfItsFences) {
    for (const protocol broken : {protocol{.has_heavy_barrier = false},
                                  {.looks_after_leaving = false},
                                  {.names_with_fence = false}})
        EXPECT_NE(search(broken, messages_beside_a_part()).fault(), "");
}

TEST(RemovalProtocol, NeedsEachStepOfNaming) {
    const std::pair<protocol, const char*> broken[] = {
        {{.names_opaquely_first = false}, "a removal looks into a destroyed list"},
        {{.looks_again = false}, "a destroyed list is read"},
        {{.keeps_what_is_named = false}, "a destroyed list is read"},
        {{.forgets = false}, "a removal looks into a destroyed list"},
        {{.reads_word_before_keeper = false}, "a destroyed callable runs"}};
    for (const auto& [rules, fault] : broken)
        EXPECT_EQ(search(rules, ending_before_another_message()).fault(), fault);
    const auto plainly_named_snapshot = ending_before_a_part_with_monitors(ending);
    EXPECT_EQ(search({.retired_are_monitors = true}, plainly_named_snapshot).fault(),
              "an awaited call runs after the drop")
        << "the keeper of the last one takes it for its own";
}

} // namespace
