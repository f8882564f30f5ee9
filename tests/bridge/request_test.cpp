// Requests between processes: what became of each is said honestly.
#include "tests/bridge/host_process.h"

namespace zel::event_routing::nats {
namespace {

constexpr std::size_t expired = 7; // of the counts

class BridgeRequests : public testing::Test {
protected:
    void SetUp() override {
        REQUIRE_NATS_SERVER();
        server_.start();
        asking_ = std::make_unique<host_process>("asking", server_);
        first_ = std::make_unique<host_process>("first", server_);
        second_ = std::make_unique<host_process>("second", server_);
    }

    void start_asking() { start_asking(*asking_); }
    static void start_asking(host_process& host) { host.tell_all("ask work.*; start; ready"); }

    static void start_serving(host_process& host, const char* mode, const char* behaviour) {
        host.tell({"serve", "work.*", mode});
        host.tell({"answer", "work.*", behaviour});
        host.start();
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

    server server_;
    std::unique_ptr<host_process> asking_;
    std::unique_ptr<host_process> first_;
    std::unique_ptr<host_process> second_;
};

TEST_F(BridgeRequests, AreAnsweredDeclinedOrFailedAsTheOneThatServesThemDoes) {
    for (const char* mode : {"owner", "any", "unique"}) {
        for (const std::string behaviour : {"reply", "error", "decline", "throw"}) {
            host_process asking("asking", server_);
            host_process serving("serving", server_);
            serving.tell({"expect", "asking"}); // and is heard of by it
            start_asking(asking);
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

TEST_F(BridgeRequests, OfUniqueModeAskAllThatServeThemAndAcceptOneAnswer) {
    const words behaviours{"reply", "decline", "throw"};
    start_asking();
    for (const auto& first : behaviours) {
        for (const auto& second : behaviours) {
            // Asked in the order of their names.
            host_process one("1", server_);
            host_process two("2", server_);
            for (auto* host : {&one, &two}) {
                host->tell({"serve", "work.*", "unique"});
                host->tell({"answer", "work.*", host == &one ? first : second});
                host->tell({"expect", "asking"});
                host->start();
            }
            // They have heard of the sender, and it of them.
            const auto result = ask("work.a", "a").first;
            if (first == "throw" || second == "throw")
                EXPECT_EQ(result, "threw") << first << ' ' << second;
            else if (first == "reply" && second == "reply")
                EXPECT_EQ(result, "multiple");
            else
                EXPECT_EQ(result, first == second ? "nobody" : "answered") << first << second;
            EXPECT_EQ(one.journal("asked").size(), 1U);
            EXPECT_EQ(two.journal("asked").size(), first == "throw" ? 0U : 1U);
            one.kill(); // without a goodbye
            // Before the server has found that out, nobody can say what became of a request.
            std::string afterwards = "unknown";
            for (int limit = 200; afterwards == "unknown" || afterwards == "did not run";
                 limit *= 2)
                afterwards = ask("work.a", "b", std::to_string(limit)).first;
            EXPECT_EQ(afterwards, second == "reply"   ? "answered"
                                  : second == "throw" ? "threw"
                                                      : "nobody");
            EXPECT_EQ(two.end(), 0);
        }
    }
}

TEST_F(BridgeRequests, HaveOneOwnerAndASecondClaimNamesIt) {
    start_asking();
    start_serving(*first_, "owner", "reply");
    second_->tell_all("serve work.* owner; answer work.* reply; start");
    second_->program().write_line("ready");
    const auto refused = second_->program().read_line();
    ASSERT_TRUE(refused && refused->starts_with("failed "));
    EXPECT_NE(refused->find("686f73742027666972737427"), std::string::npos)
        << "host 'first', in hexadecimal digits, in " << *refused;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(ask("work.a", "").second, "first has ");
    EXPECT_EQ(first_->end(), 0);
    EXPECT_EQ(ask("work.a", "").first, "nobody") << "the second is not the owner now, either";

    // Of two that claim it at the same time one wins, too. A third one's answer might come before
    // the winner's, and that is waited for only so long.
    EXPECT_EQ(second_->end(), 0);
    for (int round = 0; round < 4; ++round) {
        std::vector<std::unique_ptr<host_process>> claiming;
        for (int i = 0; i < 2; ++i) {
            auto& host = *claiming.emplace_back(std::make_unique<host_process>("one", server_));
            host.tell({"serve", "work.*", "owner"});
        }
        server_.suspend(); // both wait for it, and go on at once
        for (const std::string command : {"start", "ready"}) {
            for (auto& host : claiming)
                host->begin({command});
            server_.resume();
            int succeeded = 0;
            for (auto& host : claiming)
                succeeded += host->program().read_line().value_or("") == "ok";
            EXPECT_EQ(succeeded, command == "ready" ? 1 : 2) << command;
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
    while (first_->count(expired) < 2) {
    }
    words texts;
    for (const auto& entry : first_->journal("asked"))
        texts.push_back(entry.at(2));
    EXPECT_EQ(texts, (words{"warm", "last"}));
}

TEST_F(BridgeRequests, AreNeverKeptForAServerThatComesBack) {
    start_asking();
    start_serving(*first_, "owner", "hold");
    asking_->begin({"request", "work.a", "under way"});
    first_->tell({"await", "asked", "1"});
    server_.kill();
    EXPECT_EQ(outcome(asking_->answer()).first, "unknown") << "told by the broken connection";
    EXPECT_EQ(ask("work.a", "meanwhile").first, "did not run");
    first_->tell({"release"});
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
    start_serving(*first_, "any", "die");
    std::string before;
    // A busy machine may begin too late, or find out later that the host is gone.
    for (std::string result = "", limit = "1"; result != "nobody"; limit += '0') {
        before = result;
        result = ask("work.a", "fatal", limit).first;
    }
    EXPECT_EQ(before, "unknown");

    host_process another("another", server_);
    start_asking(another);
    second_->tell({"answer", "work.held", "hold"});
    start_serving(*second_, "any", "reply");
    asking_->begin({"request", "work.held", "ending"});
    second_->tell_all("await asked 1; leave");
    while (outcome(another.tell({"request", "work.a"})).first != "nobody") {
    }
    second_->tell({"release"});
    EXPECT_EQ(outcome(asking_->answer()).first, "answered") << "its end waits for what it executes";
    EXPECT_EQ(second_->end(), 0);
}

TEST_F(BridgeRequests, AsSnowballsGoFromHostToHostAndPassBySilentOnes) {
    host_process third("third", server_);
    asking_->tell_all("snowballs menu.* send; add menu.file own; expect first; expect second; "
                      "expect third; start");
    for (auto* host : {first_.get(), second_.get(), &third}) {
        host->tell({"add", "menu.*", host == &third ? "3" : host == first_.get() ? "1" : "2"});
        // It does not send on what came to it.
        host->tell_all("snowballs menu.* serve; snowballs menu.* send; start; ready");
    }
    asking_->tell({"ready"});
    const auto send = [&](const std::string& limit = "") {
        return outcome(asking_->tell({"snowball", "menu.file", "start", limit}));
    };
    EXPECT_EQ(send().second, "start own 1 2 3");
    std::string passed;
    // A busy machine may pass by a host that is only slow.
    for (int limit = 1000; passed != "start own 1 3"; limit *= 2) {
        second_->program().suspend();
        passed = send(std::to_string(limit)).second;
        second_->program().resume();
    }
    EXPECT_EQ(third.journal("added").back().at(3), "second") << "the next host is told";
    EXPECT_EQ(first_->end(), 0); // nobody listens there any more, so nothing has to be waited for
    third.tell({"add", "menu.file", "throw"});
    EXPECT_EQ(send(), std::make_pair(std::string("threw"), std::string("no paper")));
    EXPECT_EQ(third.end(), 0);
    EXPECT_EQ(send().second, "start own 2");
    // What was on its way while the second slept was not added to later.
    EXPECT_EQ(second_->journal("added").size(), 3U);
}

} // namespace
} // namespace zel::event_routing::nats
