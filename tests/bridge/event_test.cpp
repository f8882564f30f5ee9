// Events between processes: everything once, in order, or told as lost.
#include "libraries/nats_bridge/subject.h"
#include "tests/bridge/host_process.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>

namespace zel::event_routing::nats {
namespace {

constexpr std::size_t sent = 1, not_sent = 3; // of the counts
const std::string long_path = "a." + std::string(1000, 'x');

class BridgeEvents : public testing::Test {
protected:
    void SetUp() override {
        REQUIRE_NATS_SERVER();
        server_.start();
    }

    server server_;
};

words texts_of(const std::vector<words>& entries) {
    words texts;
    for (const auto& entry : entries)
        texts.push_back(entry.at(2));
    return texts;
}

words numbers(int from, int to) {
    words all;
    for (int i = from; i < to; ++i)
        all.push_back(std::to_string(i));
    return all;
}

// How many messages a host was told to have been lost.
std::size_t lost_count(host_process& host) {
    std::size_t count = 0;
    for (const auto& entry : host.journal("lost"))
        count += std::stoul(entry.at(3)) - std::stoul(entry.at(2)) + 1;
    return count;
}

words pieces_of(const std::string& paths) {
    words pieces(1);
    for (const char byte : paths)
        byte == ';' ? (void)pieces.emplace_back() : pieces.back().push_back(byte);
    return pieces;
}

// The local map decides: a path arrives if a handler for an exported pattern and one for an
// imported pattern would both have been called, were they in one process. The sender has both.
TEST_F(BridgeEvents, ReachWhomTheLocalMapWouldHaveReachedWhateverTheBytesOfThePath) {
    const char* const given = std::getenv("EVENT_ROUTING_MODEL_SEED");
    const auto seed = given ? std::stoul(given) : std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const words names{"a",    "b", "",   " ", "a b", ">", "\r\n", std::string(1, '\0'),
                      "\xff", "=", "=41"};
    const auto any_path = [&](std::size_t most) {
        std::string path = names[random() % names.size()];
        for (std::size_t left = random() % most; left > 0; --left)
            path += '.' + names[random() % names.size()];
        return path;
    };
    host_process sending("sending", server_);
    host_process hearing("hearing", server_);
    words pool;
    const auto some_patterns = [&](const char* command, const char* handler, host_process& host) {
        words chosen{"end.*", "a.*", "\r\n.*", "=.*"};
        for (int i = 0; i < 12; ++i) {
            const bool is_shared = !pool.empty() && random() % 2;
            const std::string pattern =
                is_shared ? pool[random() % pool.size()] : any_path(2) + (random() % 4 ? ".*" : "");
            pool.push_back(pattern);
            bool fits = !pattern.empty();
            for (const auto& other : chosen)
                fits = fits && !overlap(other, pattern);
            if (fits)
                chosen.push_back(pattern);
        }
        for (const auto& pattern : chosen) {
            host.tell({command, pattern});
            sending.tell({"listen", handler, pattern});
        }
    };
    some_patterns("export", "exported", sending);
    some_patterns("import", "imported", hearing);
    hearing.tell({"listen", "heard", "*"});
    hearing.tell({"listen", "end", "end.*"});
    for (auto* host : {&hearing, &sending})
        host->start();
    for (int i = 0; i < 400; ++i) {
        std::string paths = any_path(4);
        while (random() % 3 == 0)
            paths += ';' + any_path(4);
        sending.tell({"send", paths, std::to_string(i)});
    }
    sending.tell({"send", "end.", "end"});
    sending.tell({"await", "exported", "1"});

    // By the number of the broadcast, the paths that both have.
    std::map<std::string, std::multiset<std::string>> exported, imported, expected, heard;
    for (const auto& entry : sending.journal("exported"))
        for (const auto& path : pieces_of(entry.at(1)))
            exported[entry.at(2)].insert(path);
    for (const auto& entry : sending.journal("imported"))
        for (const auto& path : pieces_of(entry.at(1)))
            imported[entry.at(2)].insert(path);
    for (const auto& [broadcast, paths] : exported)
        for (const auto& path : paths)
            if (imported[broadcast].contains(path))
                expected[broadcast].insert(path);
    hearing.tell({"await", "end", "1"});
    for (const auto& entry : hearing.journal("heard")) {
        EXPECT_EQ(entry.at(3),
                  "event_routing.bridge.hops=1 event_routing.bridge.host=sending kept=5 ");
        for (const auto& path : pieces_of(entry.at(1)))
            heard[entry.at(2)].insert(path);
    }
    heard.erase("end"); // the less specific handler may not have been called yet
    expected.erase("end");
    EXPECT_EQ(heard, expected);
    EXPECT_GT(expected.size(), 10U) << "the patterns fit too few paths to show anything";
}

TEST_F(BridgeEvents, ReachEveryHostOfAMeshOnceAndInOrder) {
    constexpr int count = 20'000;
    std::vector<std::unique_ptr<host_process>> hosts;
    for (const char* name : {"one", "two", "three"}) {
        auto& host = *hosts.emplace_back(std::make_unique<host_process>(name, server_));
        host.tell_all("export mesh.*; import mesh.*; listen seen mesh.*; start");
    }
    for (auto& host : hosts)
        host->tell({"ready"});
    for (auto& host : hosts)
        host->begin({"stream", "mesh.", "0", std::to_string(count)});
    for (auto& host : hosts) {
        host->answer();
        host->tell({"await", "seen", std::to_string(3 * count)});
    }
    for (auto& host : hosts) {
        std::map<std::string, words> by_sender;
        for (const auto& entry : host->journal("seen"))
            by_sender[entry.at(3)].push_back(entry.at(2));
        EXPECT_EQ(by_sender.size(), 3U) << "its own, which have no sender, and those of two others";
        for (const auto& [sender, texts] : by_sender)
            EXPECT_TRUE(texts == numbers(0, count)) << sender;
    }
    for (auto& host : hosts)
        EXPECT_EQ(host->end(), 0);
}

TEST_F(BridgeEvents, EndAfterEightHopsBetweenComponentsThatSendThemOn) {
    host_process one("one", server_);
    host_process two("two", server_);
    for (auto* host : {&one, &two})
        host->tell_all("export ball; export end; import ball; import end; listen seen *; "
                       "echo ball; start; ready");
    one.tell({"send", "ball", "ping"});
    // Each catches it four times and sends it on, which its own listener hears, too; the first
    // host hears its own beginning and does not send the last on.
    one.tell_all("await seen 9");
    // What is sent now comes after whatever else was under way.
    two.tell_all("await seen 8; send end last");
    one.tell_all("await seen 10; send end last");
    two.tell_all("await seen 10");
    EXPECT_EQ(one.journal("seen").size(), 11U);
    EXPECT_EQ(two.journal("seen").size(), 10U);
}

TEST_F(BridgeEvents, WaitForTheServerUpToALimitAndAreToldAsLostBeyond) {
    server_.kill();
    for (const bool oldest : {false, true}) {
        host_process sending("sending", server_);
        host_process hearing("hearing", server_);
        hearing.tell_all("import a; listen seen a; start");
        sending.tell_all("export a; listen lost event_routing.bridge.lost");
        sending.tell({"row", "10", oldest ? "oldest" : "newest"});
        sending.tell({"start"});
        for (int i = 0; i < 100; ++i)
            sending.tell({"send", "a", std::to_string(i)});
        server_.start();
        sending.tell({"ready"});
        hearing.tell({"ready"});
        while (sending.count(sent) + sending.count(not_sent) < 100) {
        }
        const auto dropped = sending.count(not_sent);
        EXPECT_GE(dropped, 89U) << "one may be on its way to the server beside the ten";
        while (lost_count(sending) < dropped) {
        }
        EXPECT_EQ(lost_count(sending), dropped);
        // What waited may have been sent before the other host listened; this may not.
        sending.tell({"send", "a", "100"});
        words texts;
        while (texts.empty() || texts.back() != "100")
            texts = texts_of(hearing.journal("seen"));
        EXPECT_LE(texts.size(), 12U);
        const auto kept = std::count_if(texts.begin(), texts.end(), [&](const auto& text) {
            return oldest ? std::stoi(text) >= 90 : std::stoi(text) < 10;
        });
        EXPECT_GE(kept + (oldest ? 1 : 2), static_cast<std::ptrdiff_t>(texts.size()))
            << "beside the last one, the sending thread may have made room for one more";
        server_.kill();
    }
}

// Sends while `disturb` does something to the server or a host, and looks for what is missing.
// The paths are so long that what is sent finds no room in the buffers of the system.
void expect_all_received_or_lost(const server& with,
                                 const std::function<void(host_process&, host_process&)>& disturb) {
    constexpr std::size_t count = 20'014;
    host_process sending("sending", with);
    host_process hearing("hearing", with);
    sending.tell_all("export a.*; ask b");
    hearing.tell_all("import a.*; listen seen a.*");
    for (auto* host : {&sending, &hearing})
        host->tell_all("listen lost event_routing.bridge.lost; start; ready");
    sending.tell({"stream", long_path, "0", "7"}); // each path has a number from now on
    hearing.tell({"await", "seen", "7"});
    disturb(sending, hearing);
    for (auto* host : {&sending, &hearing})
        host->tell({"ready"});
    // The last of each path shows what is missing before it.
    sending.tell({"stream", long_path, "20007", "20014"});
    std::size_t found = 0;
    std::vector<words> seen;
    while (found < count) {
        seen = hearing.journal("seen");
        found = seen.size() + lost_count(hearing);
    }
    EXPECT_EQ(found, count);
    EXPECT_LT(seen.size(), count) << "nothing was lost, so nothing shown";
    EXPECT_EQ(lost_count(sending), 0U) << "there was room for all of them";
    int latest = -1;
    for (const auto& text : texts_of(seen)) {
        EXPECT_GT(std::stoi(text), latest) << "twice, or out of order";
        latest = std::stoi(text);
    }
    EXPECT_EQ(latest, 20'013);
}

TEST_F(BridgeEvents, AreAllReceivedOrToldAsLostWhenTheServerIsKilled) {
    expect_all_received_or_lost(server_, [this](auto& sending, auto& hearing) {
        // Most of it is in the server's memory when it is killed.
        hearing.program().suspend();
        sending.tell({"stream", long_path, "7", "20007"});
        while (sending.count(sent) < 20'007) {
        }
        server_.kill();
        server_.start();
        hearing.program().resume();
    });
}

TEST_F(BridgeEvents, AreAllReceivedOrToldAsLostWhenTheServerTakesNothingForAWhile) {
    expect_all_received_or_lost(server_, [this](auto& sending, auto&) {
        server_.suspend();
        sending.tell({"stream", long_path, "7", "20007"});
        // Until the connections are given up, which ends a request in this way.
        EXPECT_EQ(sending.tell({"request", "b"}).at(0).at(1), "unknown");
        server_.resume();
    });
}

TEST_F(BridgeEvents, ThatAreUnderWayAreDeliveredWhenTheBridgeEndsAndTheEndIsCleanInTraffic) {
    host_process sending("sending", server_);
    host_process hearing("hearing", server_);
    host_process leaving("leaving", server_);
    sending.tell_all("export a.*; start; ready");
    hearing.tell_all("import a.*; listen seen a.*; start; ready");
    leaving.tell_all("import a.*; export b.*; listen seen a.*; start; ready");
    sending.begin({"stream", "a.", "0", "20000"});
    leaving.tell_all("await seen 100; end"); // in the middle of it
    const auto left = leaving.journal("seen").size();
    sending.answer();
    hearing.tell({"await", "seen", "20000"});
    // With all of it in the row, for the server comes while the end is on its way.
    server_.kill();
    host_process waiting("waiting", server_);
    waiting.tell_all("export a.*; start; stream a. 20000 40000");
    waiting.program().suspend();
    server_.start();
    hearing.tell({"ready"});
    waiting.begin({"end"});
    waiting.program().resume();
    waiting.answer();
    hearing.tell({"await", "seen", "40000"});
    EXPECT_TRUE(texts_of(hearing.journal("seen")) == numbers(0, 40'000));
    EXPECT_EQ(leaving.journal("seen").size(), left) << "nothing comes after the end";
    for (auto* host : {&sending, &hearing, &leaving, &waiting})
        EXPECT_EQ(host->end(), 0);
}

TEST_F(BridgeEvents, DoNotHoldTheEndOfABridgeWhoseServerHasStopped) {
    host_process sending("sending", server_);
    sending.tell_all("export a.*; drain 200; start; ready");
    server_.suspend();
    sending.tell({"stream", long_path, "0", "20000"});
    sending.tell({"end"}); // which would never come if it waited for the server
    EXPECT_EQ(sending.end(), 0);
}

} // namespace
} // namespace zel::event_routing::nats
