// Requests as senders and handlers see them; request_model_test.cpp has the dispatch.
#include "tests/support/routing.h"

#include <event_routing/exceptions.h>

namespace zel::event_routing::impl {
namespace {

using serialization::make_payload;

class RequestRouting : public Routing {
protected:
    template <class Failure>
    Failure failure_of(const std::string& path, const routing_parameters& parameters = {}) {
        try {
            ask(path, parameters);
        } catch (const Failure& failure) {
            return failure;
        }
        throw std::logic_error("no failure");
    }
};

TEST_F(RequestRouting, FailuresNamePathParametersAndHandlers) {
    const auto unprocessed =
        failure_of<request_was_not_processed>("a.b", {{"k1", -3}, {"k2", {INT64_MAX, "z'"}}});
    EXPECT_STREQ(unprocessed.what(), "Request 'a.b' was not processed. Routing parameters: "
                                     "k1= text: '', number: -3; k2= text: 'z'', number: "
                                     "9223372036854775807");
    EXPECT_EQ(unprocessed.path(), "a.b");
    EXPECT_EQ(unprocessed.parameters().size(), 2u);
    EXPECT_STREQ(failure_of<request_was_not_processed>("").what(),
                 "Request '' was not processed. Routing parameters: ");

    const auto sees = [](auto&, auto&, auto&, auto&, const routing_parameters& parameters) {
        EXPECT_EQ(parameters, (routing_parameters{{"target_session", -3}}));
        return true;
    };
    const cookies handlers = {answer("a.b", sees, "h1"), answer("a.b", sees, "h2"),
                              answer("a.b", notes("third"), "h3")};
    const auto twice = failure_of<multiple_request_handlers>(
        "a.b", {{"supress_not_processed_exception", 1}, {"prefer_local_request_handlers", 1}});
    EXPECT_STREQ(twice.what(), "Multiple handler registered for processing of a.b request. "
                               "Handlers:\n  2-h1\n  2-h2.");
    EXPECT_EQ(twice.path(), "a.b");
    EXPECT_EQ(twice.parameters(), (routing_parameters{{"target_session", -3}}));
    EXPECT_EQ(taken_notes(), "");
}

TEST_F(RequestRouting, AnnouncesRegularHandlers) {
    cookie inside;
    const auto listener =
        listen("event_routing.request_handler.registered",
               [&](auto&, const event_data& news, const routing_parameters& parameters) {
                   EXPECT_TRUE(parameters.empty());
                   note(text_of(news));
                   if (text_of(news) == "a.b") {
                       // The handler is there, and the service can be used from here.
                       EXPECT_TRUE(ask("a.b"));
                       inside = answer("inside", nullptr);
                   }
                   return true;
               });
    const cookies handlers = {answer("a.b", [](auto&&...) { return true; }),
                              fallback("a.y.*", nullptr), redirect("a.z", nullptr)};
    EXPECT_EQ(taken_notes(), "a.b inside");
    events.reset();
    EXPECT_NE(answer("c", nullptr), nullptr) << "nobody left to tell";
}

TEST_F(RequestRouting, RequestsWaitForARegistrationThatIsBeingTold) {
    std::unique_ptr<platform::watched_thread> asker;
    bool processed = false;
    const auto listener = listen("*", [&](auto&&...) {
        asker = std::make_unique<platform::watched_thread>([&] { processed = ask("a"); });
        EXPECT_TRUE(asker->falls_asleep());
        return true;
    });
    EXPECT_FALSE(ask("a", without_failure)) << "now it is remembered";
    const auto regular = answer("a", notes("1"));
    asker->join();
    EXPECT_TRUE(processed);
}

TEST_F(RequestRouting, AFailedAnnouncementTakesTheHandlerBack) {
    const auto monitor = events->RegisterMonitorHandler([](auto&&...) { throw 7; });
    const auto listener = listen("*", notes("told of, which fails"));
    EXPECT_THROW(answer("a", notes("1")), int);
    EXPECT_TRUE(requests->GetRequestHandlers().empty());
    EXPECT_FALSE(ask("a", without_failure));
}

// The answer to one request tells whom to ask next.
TEST_F(RequestRouting, ThePathMayLieInAnOutput) {
    const std::string target = "a.path.that.is.long.enough.to.lie.on.the.heap";
    const auto monitor = requests->RegisterMonitorHandler(notes("monitor"));
    const auto handler = answer(target, notes("handler"));
    response = make_payload(target);
    std::string scratch;
    EXPECT_TRUE(ask(*serialization::GetDataValue(request_data(response), scratch)));
    EXPECT_EQ(taken_notes(), "handler<" + target + "> monitor<" + target + ">");
}

TEST_F(RequestRouting, HandlersMayComeAndGoDuringARequest) {
    cookie itself, later, dropped;
    itself = answer("a", [&](auto&&...) {
        note("itself");
        itself.reset();
        dropped.reset();
        later = fallback("a", notes("later"));
        return false;
    });
    dropped = answer("a", notes("dropped"));
    EXPECT_TRUE(ask("a", {{"prefer_local_request_handlers", 1}}));
    EXPECT_EQ(taken_notes(), "itself later<a>");
    later.reset();
    EXPECT_FALSE(ask("a", without_failure));

    const auto empty = answer("b", nullptr);
    EXPECT_THROW(ask("b"), std::bad_function_call);
}

} // namespace
} // namespace zel::event_routing::impl
