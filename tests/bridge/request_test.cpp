// Requests between processes: what became of each is said honestly.
#include "tests/bridge/host_process.h"

#include <chrono>

namespace zel::event_routing::nats {
namespace {

using namespace std::chrono_literals;

// Longer than any test takes that does not wait for it.
constexpr const char* ages = "60000";

class BridgeRequests : public testing::Test {
protected:
    void SetUp() override {
        REQUIRE_NATS_SERVER();
        server_.start();
        asking_ = std::make_unique<host_process>("asking", server_);
        first_ = std::make_unique<host_process>("first", server_);
        second_ = std::make_unique<host_process>("second", server_);
    }

    void start_asking() {
        asking_->tell({"ask", "work.*", ages});
        start(*asking_);
    }

    static void start_serving(host_process& host, const char* mode, const char* behaviour) {
        host.tell({"serve", "work.*", mode});
        host.tell({"answer", "work.*", behaviour});
        start(host);
    }

    static void start(host_process& host) {
        host.tell({"start"});
        host.tell({"ready"});
    }

    // What became of it, and the answer or the failure's text.
    static std::pair<std::string, std::string> outcome(const std::vector<words>& lines) {
        if (lines.empty())
            return {};
        return {lines.front().at(1), lines.front().at(2)};
    }

    std::pair<std::string, std::string> ask(const std::string& path, const std::string& text,
                                            const std::string& parameter = "") {
        return outcome(asking_->tell({"request", path, text, parameter}));
    }

    static std::size_t expired(host_process& host) {
        return std::stoul(host.tell({"counts"}).at(0).at(7));
    }

    server server_;
    std::unique_ptr<host_process> asking_;
    std::unique_ptr<host_process> first_;
    std::unique_ptr<host_process> second_;
};

TEST_F(BridgeRequests, AreAnsweredDeclinedOrFailedAsTheOneThatServesThemDoes) {
    for (const char* mode : {"owner", "any"}) {
        for (const std::string behaviour : {"reply", "error", "decline", "throw"}) {
            host_process asking("asking", server_);
            host_process serving("serving", server_);
            asking.tell({"ask", "work.*", ages});
            start(asking);
            const auto ask = [&] { return outcome(asking.tell({"request", "work. \r\n*", "a"})); };
            EXPECT_EQ(ask().first, "nobody") << "before anybody serves it";
            start_serving(serving, mode, behaviour.c_str());
            const auto [result, text] = ask();
            if (behaviour == "reply") {
                EXPECT_EQ(result + ": " + text, "answered: serving has a");
            } else if (behaviour == "error") {
                EXPECT_EQ(result + ": " + text, "error: serving has a");
            } else if (behaviour == "decline") {
                EXPECT_EQ(result, "nobody");
            } else {
                EXPECT_EQ(result + ": " + text, "threw: serving: zel::exceptions::error: no paper");
            }
            const auto asked = serving.journal("asked");
            ASSERT_EQ(asked.size(), 1U);
            EXPECT_EQ(asked[0], (words{"asked", "work. \r\n*", "a", "asking"}));
            EXPECT_EQ(serving.end(), 0);
            EXPECT_EQ(ask().first, "nobody") << "after it has ended";
        }
    }
}

TEST_F(BridgeRequests, OfAnyModeAreEachAnsweredByOneOfTwo) {
    start_asking();
    for (auto* host : {first_.get(), second_.get()})
        start_serving(*host, "any", "reply");
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(ask("work.a", std::to_string(i)).first, "answered");
    const auto by_first = first_->journal("asked").size();
    const auto by_second = second_->journal("asked").size();
    EXPECT_EQ(by_first + by_second, 50U);
    EXPECT_TRUE(by_first > 0 && by_second > 0);
}

TEST_F(BridgeRequests, HaveOneOwnerAndASecondClaimNamesIt) {
    start_asking();
    start_serving(*first_, "owner", "reply");
    second_->tell({"serve", "work.*", "owner"});
    second_->tell({"answer", "work.*", "reply"});
    second_->tell({"start"});
    second_->program().write_line("ready");
    const auto refused = second_->program().read_line(30s);
    ASSERT_TRUE(refused && refused->starts_with("failed "));
    EXPECT_NE(refused->find("686f73742027666972737427"), std::string::npos)
        << "host 'first', in hexadecimal digits, in " << *refused;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(ask("work.a", "").second, "first has ");
    EXPECT_EQ(first_->end(), 0);
    EXPECT_EQ(ask("work.a", "").first, "nobody") << "the second is not the owner now, either";

    // Of hosts that claim it at the same time one wins, too.
    for (int round = 0; round < 2; ++round) {
        std::vector<std::unique_ptr<host_process>> claiming;
        for (int i = 0; i < 4; ++i) {
            auto& host = *claiming.emplace_back(std::make_unique<host_process>("one", server_));
            host.tell({"serve", "work.*", "owner"});
        }
        server_.suspend(); // all of them wait for it, and go on at once
        for (const std::string command : {"start", "ready"}) {
            for (auto& host : claiming)
                host->begin({command});
            server_.resume();
            int succeeded = 0;
            for (auto& host : claiming)
                succeeded += host->program().read_line(30s).value_or("") == "ok";
            EXPECT_EQ(succeeded, command == "ready" ? 1 : 4) << command;
        }
    }
}

TEST_F(BridgeRequests, StayInTheProcessWhereItCanAnswerOrIsAskedAlone) {
    asking_->tell({"answer", "work.here", "reply"});
    start_asking();
    start_serving(*first_, "owner", "reply");
    EXPECT_EQ(ask("work.here", "a").second, "asking has a");
    EXPECT_EQ(ask("work.a", "a", "local").first, "nobody");
    EXPECT_EQ(ask("work.a", "a", "skip").first, "nobody");
    EXPECT_EQ(ask("elsewhere", "a").first, "nobody");
    EXPECT_TRUE(first_->journal("asked").empty());
    EXPECT_EQ(ask("work.a", std::string(2'000'000, 'a')).first, "did not run") << "too large";
    EXPECT_TRUE(first_->journal("asked").empty());
}

TEST_F(BridgeRequests, AreNotExecutedOnceTheSenderWaitsNoMore) {
    start_asking();
    start_serving(*first_, "owner", "reply");
    EXPECT_EQ(ask("work.a", "warm").first, "answered");
    // Whoever sleeps finds it afterwards: the host that answers, or the server on the way to it.
    first_->program().suspend();
    EXPECT_EQ(ask("work.a", "host", "300").first, "unknown");
    first_->program().resume();
    server_.suspend();
    EXPECT_EQ(ask("work.a", "server", "300").first, "unknown");
    server_.resume();
    EXPECT_EQ(ask("work.a", "last").first, "answered");
    for (int i = 0; i < 10'000 && expired(*first_) < 2; ++i) {
    }
    EXPECT_EQ(expired(*first_), 2U);
    words texts;
    for (const auto& entry : first_->journal("asked"))
        texts.push_back(entry.at(2));
    EXPECT_EQ(texts, (words{"warm", "last"}));
}

TEST_F(BridgeRequests, AreNeverKeptForAServerThatComesBack) {
    start_asking();
    start_serving(*first_, "owner", "slow");
    asking_->begin({"request", "work.a", "under way"});
    first_->tell({"await", "asked", "1"});
    server_.kill();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(asking_->answer()).first, "unknown") << "it runs, and nobody can say so";
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s) << "told by the broken connection";
    EXPECT_EQ(ask("work.a", "meanwhile").first, "did not run");
    server_.start();
    first_->tell({"ready"});
    asking_->tell({"ready"});
    EXPECT_EQ(ask("work.a", "afterwards").first, "answered");
    words texts;
    for (const auto& entry : first_->journal("asked"))
        texts.push_back(entry.at(2));
    EXPECT_EQ(texts, (words{"under way", "afterwards"}));
}

TEST_F(BridgeRequests, AreOfUnknownOutcomeWhenTheirHostIsKilledAndAnsweredWhenItEnds) {
    start_asking();
    start_serving(*first_, "any", "slow");
    asking_->begin({"request", "work.a", "killed", "1000"});
    first_->tell({"await", "asked", "1"});
    first_->kill();
    EXPECT_EQ(outcome(asking_->answer()).first, "unknown");
    EXPECT_EQ(ask("work.a", "gone").first, "nobody");

    start_serving(*second_, "any", "slow");
    asking_->begin({"request", "work.a", "ending"});
    second_->tell({"await", "asked", "1"});
    second_->tell({"end"});
    EXPECT_EQ(outcome(asking_->answer()).first, "answered") << "its end waits for what it executes";
}

} // namespace
} // namespace zel::event_routing::nats
