// Requests as senders, handlers and monitors see them.
#include "framework/event_routing/src/event_routing/request_routing_impl.h"

#include "framework/event_routing/src/event_routing/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/message_counters.h"
#include "framework/event_routing/src/event_routing/registration.h"
#include "framework/serialization/payload.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <event_routing/exceptions.h>
#include <event_routing/request_handling_info.h>
#include <event_routing/typed.h>

#include <cmath>
#include <gtest/gtest.h>
#include <platform/diagnostics.h>
#include <platform/process.h>
#include <thread>

namespace zel::event_routing::impl {
namespace {

using serialization::make_payload;
using info = monitor::request_handling_info_3;

class RequestRouting : public testing::Test {
protected:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    // Handlers leave their names behind, with what they see of "target_session".
    request_handler noting(const std::string& name, bool answer) {
        return [=, this](const std::string&, const request_data&, request_answer&, request_answer&,
                         const routing_parameters& parameters) {
            const auto target = parameters.find("target_session");
            calls += name;
            if (target != parameters.end())
                calls += "(" + std::to_string(target->second.number) + target->second.text + ")";
            calls += " ";
            EXPECT_FALSE(parameters.contains("supress_not_processed_exception"));
            EXPECT_FALSE(parameters.contains("prefer_local_request_handlers"));
            return answer;
        };
    }
    cookie answer(const std::string& path, request_handler handler, const std::string& name = "h",
                  int priority = 0) {
        return requests->RegisterRequestHandler(path, priority, handler, name);
    }
    bool send(const std::string& path, const routing_parameters& parameters = {}) {
        return requests->SendRequest(path, data, response, error_response, parameters);
    }
    template <class Failure>
    Failure failure_of(const std::string& path, const routing_parameters& parameters = {}) {
        try {
            send(path, parameters);
        } catch (const Failure& failure) {
            return failure;
        }
        throw std::logic_error("no failure");
    }

    std::string calls;
    request_data data;
    request_answer response, error_response;
    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::shared_ptr<RequestRoutingImpl> requests = std::make_shared<RequestRoutingImpl>(events);
};

TEST_F(RequestRouting, EmptiesTheOutputsAndHandsThemFromHandlerToHandler) {
    data = make_payload(std::string("data"));
    const auto declines =
        answer("a.b", [&](const auto& path, const auto& received, auto& r, auto& e, const auto&) {
            EXPECT_EQ(path, "a.b");
            EXPECT_EQ(received, data);
            EXPECT_TRUE(!r && !e) << "the caller's outputs were dropped";
            r = make_payload(std::string("left by who declined"));
            return false;
        });
    const auto processes = answer("a.*", [&](auto&&, auto&&, auto& r, auto& e, auto&&) {
        EXPECT_TRUE(r);
        e = make_payload(std::string("error"));
        return true;
    });
    response = error_response = make_payload(std::string("of the caller"));
    EXPECT_FALSE(send("a.b"));
    std::string scratch;
    EXPECT_EQ(*serialization::GetDataValue(request_data(response), scratch),
              "left by who declined");
    EXPECT_TRUE(send("a.b", {{"supress_not_processed_exception", 0}}))
        << "error data count only without suppression";
}

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

    const auto first = answer("a.b", noting("1", true), "h1");
    const auto second = answer("a.b", noting("2", true), "h2");
    const auto third = answer("a.b", noting("3", true), "h3");
    const auto twice = failure_of<multiple_request_handlers>(
        "a.b", {{"supress_not_processed_exception", 1}, {"prefer_local_request_handlers", 1}});
    EXPECT_STREQ(twice.what(), "Multiple handler registered for processing of a.b request. "
                               "Handlers:\n  2-h1\n  2-h2.");
    EXPECT_EQ(calls, "1(-3) 2(-3) ");
    EXPECT_EQ(twice.parameters().at("target_session").number, -3);
    EXPECT_EQ(twice.parameters().size(), 1u);
}

TEST_F(RequestRouting, LogsRegistrationsAndBroadcastsThoseOfRegularHandlers) {
    const test::log_capture log(0);
    std::string told;
    const auto listener = events->RegisterEventHandler(
        nullptr, "event_routing.request_handler.registered",
        [&](const std::string&, const event_data& news, const routing_parameters& parameters) {
            EXPECT_TRUE(parameters.empty());
            EXPECT_EQ(news->GetData()->GetTypeName(), "string");
            std::string scratch;
            const auto path = *serialization::GetDataValue(news, scratch);
            told += path + " ";
            if (path == "a.b") {
                // The handler is there, and the service can be used from here.
                EXPECT_TRUE(send("a.b"));
                answer("inside", noting("inside", true));
            }
            return true;
        },
        nullptr, "listener");
    auto regular = answer("a.b", noting("1", true), "x");
    const auto fallback = requests->RegisterRequestFallbackHandler("a.y.*", nullptr, "d");
    const auto redirection = requests->RegisterRequestRedirectionHandler("a.z", nullptr, "e");
    EXPECT_THROW(answer("a*.b", nullptr), exceptions::error);
    EXPECT_EQ(requests->GetRequestHandlers(),
              (std::vector<std::pair<std::string, std::string>>{{"a.b", "x"}}));
    EXPECT_EQ(dynamic_cast<KeepRegisteredWithDescr&>(*fallback).description(), "a.y.*, d");
    regular.reset();
    EXPECT_EQ(told, "a.b inside ");
    std::vector<std::string> lines;
    for (const auto& line : log.lines())
        if (line.text.find("event handler") == std::string::npos) {
            EXPECT_EQ(line.severity, 0);
            lines.push_back(line.text);
        }
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "Registering request handler for a.b.", "Registering request handler for inside.",
                  "Registering request fallback handler for a.y.*. Description: d",
                  "Registering request redirection handler for a.z. Description: e",
                  "Registering request handler for a*.b."}));
    events.reset();
    EXPECT_NE(answer("c", nullptr), nullptr) << "nobody left to tell";
}

TEST_F(RequestRouting, RequestsWaitForARegistrationThatIsBeingTold) {
    std::unique_ptr<platform::watched_thread> asker;
    bool processed = false;
    const auto listener = events->RegisterEventHandler(
        nullptr, "*",
        [&](auto&&...) {
            asker = std::make_unique<platform::watched_thread>([&] { processed = send("a"); });
            EXPECT_TRUE(asker->falls_asleep());
            return true;
        },
        nullptr, "listener");
    EXPECT_FALSE(send("a", {{"supress_not_processed_exception", 1}})) << "now it is remembered";
    const auto regular = answer("a", noting("1", true));
    asker->join();
    EXPECT_TRUE(processed);
}

TEST_F(RequestRouting, AFailedAnnouncementTakesTheHandlerBack) {
    const auto monitor = events->RegisterMonitorHandler([](auto&&...) { throw 7; });
    const auto listener = events->RegisterEventHandler(
        nullptr, "*", [](auto&&...) { return true; }, nullptr, "told of, which fails");
    EXPECT_THROW(answer("a", noting("1", true)), int);
    EXPECT_TRUE(requests->GetRequestHandlers().empty());
    EXPECT_FALSE(send("a", {{"supress_not_processed_exception", 1}}));
    EXPECT_EQ(calls, "");
}

// The answer to one request tells whom to ask next.
TEST_F(RequestRouting, ThePathMayLieInAnOutput) {
    const std::string target = "a.path.that.is.long.enough.to.lie.on.the.heap";
    std::string told;
    const auto monitor =
        requests->RegisterMonitorHandler([&](const std::string& path, auto&&...) { told = path; });
    const auto handler = answer(target, noting("1", true));
    response = make_payload(target);
    std::string scratch;
    EXPECT_TRUE(send(*serialization::GetDataValue(request_data(response), scratch)));
    EXPECT_EQ(told, target);
}

TEST_F(RequestRouting, TheCallersTargetSessionComesBackWhole) {
    const auto declines = answer("a", noting("1", false));
    const auto last = requests->RegisterRequestFallbackHandler("a", noting("2", true), "");
    EXPECT_TRUE(send("a", {{"prefer_local_request_handlers", 1}, {"target_session", {5, "t"}}}));
    EXPECT_EQ(calls, "1(-3) 1(5t) 2(5t) ");
}

TEST_F(RequestRouting, MonitorsAreToldWhenTheRequestHasEnded) {
    data = make_payload(1);
    const auto before = next_request_message_id();
    info about;
    routing_parameters parameters;
    std::exception_ptr failure;
    const auto monitor = requests->RegisterMonitorHandler(
        [&](const std::string& path, const request_data&, const request_data& r,
            const request_data&, const routing_parameters& p, const info& i, std::exception_ptr f) {
            EXPECT_EQ(path, "a.b");
            EXPECT_EQ(r, response);
            std::tie(about, parameters, failure) = std::tuple(i, p, f);
            throw std::runtime_error("stays here");
        });
    int reports = 0;
    const platform::exception_observer observer([&](auto, auto) { ++reports; });
    const auto declines = answer("a.b", noting("1", false), "declines", 5);
    {
        const auto local = answer(
            "a.*",
            [](auto&&, auto&&, auto& r, auto&&, const routing_parameters& p) {
                r = make_payload(1);
                return p.contains("target_session");
            },
            "local");
        EXPECT_TRUE(send(
            "a.b", {{"prefer_local_request_handlers", 1}, {"monitoring_message_pid", "kept"}}));
        EXPECT_EQ(about.stage, 4);
        EXPECT_FALSE(about.current_handler);
        EXPECT_EQ(about.processing_handler->description, "local");
        EXPECT_EQ(about.processing_handler->level, 1);
        ASSERT_EQ(about.declined_handlers.size(), 1u);
        EXPECT_EQ(about.declined_handlers[0].description, "declines");
        EXPECT_GE(about.elapsed_time, about.declined_handlers[0].elapsed_time);
        EXPECT_FALSE(std::isnan(about.cpu_time + about.declined_handlers[0].cpu_time));
        EXPECT_EQ(parameters.size(), 2u) << "what steered the request is gone again";
        EXPECT_GT(parameters.at("monitoring_message_id").number, before);
        EXPECT_LT(parameters.at("monitoring_message_id").number, next_request_message_id());
        EXPECT_EQ(parameters.at("monitoring_message_pid").text, "kept");
        EXPECT_FALSE(failure);
    }
    const auto redirects = requests->RegisterRequestRedirectionHandler(
        "a.b",
        [](auto&&, auto&&, auto&&, auto&&, const routing_parameters& p) -> bool {
            if (p.contains("fail"))
                throw std::runtime_error("failed");
            return true;
        },
        "redirects");
    EXPECT_TRUE(send("a.b"));
    EXPECT_EQ(parameters.at("monitoring_message_pid").number, platform::process_id());
    EXPECT_EQ(about.current_handler->description, "redirects");
    EXPECT_EQ(about.processing_handler->description, "redirects");
    EXPECT_STREQ(
        failure_of<std::runtime_error>("a.b", {{"fail", 1}, {"monitoring_message_id", 7}}).what(),
        "failed");
    EXPECT_EQ(about.stage, 5);
    EXPECT_EQ(about.current_handler->description, "redirects");
    EXPECT_FALSE(std::isnan(about.current_handler->elapsed_time));
    EXPECT_FALSE(about.processing_handler);
    EXPECT_EQ(parameters.size(), 2u) << "neither number nor process were added";
    EXPECT_EQ(exceptions::brief_text(failure), "failed");
    EXPECT_EQ(reports, 3);
}

TEST_F(RequestRouting, HandlersMayComeAndGoDuringARequest) {
    cookie itself, later, dropped;
    itself = answer("a", [&](auto&&...) {
        calls += "itself ";
        itself.reset();
        dropped.reset();
        later = requests->RegisterRequestFallbackHandler("a", noting("later", true), "later");
        return false;
    });
    dropped = answer("a", noting("dropped", true));
    EXPECT_TRUE(send("a", {{"prefer_local_request_handlers", 1}}));
    EXPECT_EQ(calls, "itself later ");
    later.reset();
    EXPECT_FALSE(send("a", {{"supress_not_processed_exception", 1}}));

    const auto empty = answer("b", nullptr);
    EXPECT_THROW(send("b"), std::bad_function_call);
}

TEST_F(RequestRouting, DroppingACookieWaitsForCallsOnOtherThreads) {
    platform::event entered(platform::reset_mode::manual, false);
    platform::event leave(platform::reset_mode::manual, false);
    auto slow = answer("a", [&](auto&&...) {
        entered.set();
        EXPECT_TRUE(leave.wait(platform::patience));
        return true;
    });
    std::jthread sender([&] { EXPECT_TRUE(send("a")); });
    ASSERT_TRUE(entered.wait(platform::patience));
    platform::watched_thread dropper([&] { slow.reset(); });
    EXPECT_TRUE(dropper.falls_asleep());
    leave.set();
    dropper.join();
}

TEST_F(RequestRouting, TypedRequestsCarryValuesErrorsAndRefusals) {
    using Length = Request<std::uint32_t, std::string>;
    const auto handler =
        answer("length",
               Length::RequestHandler([](const std::string& text) -> typed_answer<std::uint32_t> {
                   if (text.empty())
                       return {};
                   if (text == "bad")
                       return {std::nullopt, make_payload(std::string("no length"))};
                   return {static_cast<std::uint32_t>(text.size()), nullptr};
               }));
    EXPECT_EQ(Length::Ask(*requests, "length", "four").value, 4u);
    const auto failed = Length::Ask(*requests, "length", "bad");
    std::string scratch;
    EXPECT_EQ(*serialization::GetDataValue(request_data(failed.error), scratch), "no length");
    EXPECT_FALSE(failed);
    EXPECT_THROW(Length::Ask(*requests, "length", ""), request_was_not_processed);
    const auto nobody =
        Length::Ask(*requests, "length", "", {{"supress_not_processed_exception", 1}});
    EXPECT_TRUE(!nobody && !nobody.error);
    using Wrong = Request<std::string, std::string>;
    EXPECT_THROW(Wrong::Ask(*requests, "length", "four"), exceptions::error);
    using OtherInput = Request<std::uint32_t, std::int32_t>;
    EXPECT_THROW(OtherInput::Ask(*requests, "length", 4), request_was_not_processed);

    // Whatever the output can be made of.
    const auto text =
        answer("text", Request<std::string>::RequestHandler([] { return "made of a literal"; }));
    EXPECT_EQ(Request<std::string>::Ask(*requests, "text").value, "made of a literal");
}

TEST(RequestCookie, IsNamedInTheLogByItsFullType) {
    const auto name = KeepRegistered<RequestRoutingImpl, request_routing_node>::own_type_name();
    const std::string text = "class std::basic_string<char,struct std::char_traits<char>,class "
                             "std::allocator<char> >";
    const std::string holder = "class std::shared_ptr<class zel::serialization::IDataHolder";
    EXPECT_NE(name.find("struct zel::event_routing::impl::RoutingMapNode<class std::function<bool "
                        "__cdecl(" +
                        text + " const &," + holder + " const > const &," + holder + "> &," +
                        holder + "> &,class std::map<" + text +
                        ",struct zel::event_routing::routing_parameter_value,struct std::less<" +
                        text + " >,class std::allocator<struct std::pair<" + text +
                        " const ,struct zel::event_routing::routing_parameter_value> > > const &)>,"
                        "struct zel::event_routing::impl::RequestRoutingNodeAdditionalData>"),
              std::string::npos)
        << name;
}

} // namespace
} // namespace zel::event_routing::impl
