// Snowball passes as senders, handlers and monitors see them.
#include "framework/event_routing/src/event_routing/snowball_routing_impl.h"

#include "framework/event_routing/src/event_routing/message_counters.h"
#include "framework/event_routing/src/event_routing/registration.h"
#include "framework/serialization/payload.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <event_routing/snowball_handling_info.h>
#include <event_routing/typed.h>

#include <cmath>
#include <gtest/gtest.h>
#include <platform/process.h>
#include <stdexcept>
#include <thread>

namespace zel::event_routing::impl {
namespace {

using serialization::make_payload;
using info = monitor::snowball_handling_info_3;

class SnowballRouting : public testing::Test {
protected:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    // Appends its name to the text in the response.
    cookie grow(const std::string& path, const std::string& name) {
        return snowballs->RegisterSnowballHandler(
            path, Snowball<std::string>::SnowballHandler([=](std::string& so_far, auto&&) {
                so_far += name;
            }),
            name);
    }
    std::string result() const {
        std::string scratch;
        const auto* const text = serialization::GetDataValue(snowball_data(response), scratch);
        return text ? *text : "none";
    }
    void send(const std::string& path, const routing_parameters& parameters = {}) {
        snowballs->SendSnowball(path, data, response, error_response, parameters);
    }

    snowball_data data;
    snowball_result response, error_response;
    std::shared_ptr<SnowballRoutingImpl> snowballs = std::make_shared<SnowballRoutingImpl>();
};

TEST_F(SnowballRouting, GrowsFromTheMostSpecificHandlerToTheLeast) {
    const std::vector<cookie> handlers = {grow("*", "4"), grow("a.*", "3"), grow("a.b", "1"),
                                          grow("a.b", "2"), grow("a.b.*", "x")};
    send("a.b");
    EXPECT_EQ(result(), "1234");
    response = make_payload(std::string("start "));
    const auto kept_by_another = response;
    send("a.b");
    EXPECT_EQ(result(), "start 1234");
    std::string scratch;
    EXPECT_EQ(*serialization::GetDataValue(snowball_data(kept_by_another), scratch), "start ")
        << "what others hold does not change";
    response = make_payload(std::string("start "));
    const auto only_its_data = response->GetData();
    send("a.b");
    EXPECT_NE(response->GetData(), only_its_data);
    response = error_response = make_payload(1);
    send("a.b");
    EXPECT_EQ(response, error_response) << "a result of another type is left alone";
    EXPECT_EQ(Snowball<std::string>::Send(*snowballs, "a.c", {}, "s"), "s34");
    EXPECT_EQ((Snowball<std::string, std::int32_t>::Send(*snowballs, "a.c", 1, "s")), "s")
        << "a payload of another type";
    send("");
    EXPECT_EQ(snowballs->GetSnowballHandlers(),
              (std::vector<std::pair<std::string, std::string>>{
                  {"*", "4"}, {"a.*", "3"}, {"a.b", "1"}, {"a.b", "2"}, {"a.b.*", "x"}}));
}

TEST_F(SnowballRouting, AFailedHandlerEndsThePass) {
    data = make_payload(std::tuple());
    info about;
    std::exception_ptr failure;
    routing_parameters parameters;
    const auto before = next_snowball_message_id();
    const auto monitor = snowballs->RegisterMonitorHandler(
        [&](const std::string& path, const snowball_data& d, const snowball_data& r,
            const snowball_data& e, const routing_parameters& p, const info& i,
            std::exception_ptr f) {
            EXPECT_EQ(path, "a.b");
            EXPECT_EQ(d, data);
            EXPECT_EQ(r, response);
            EXPECT_EQ(e, error_response);
            std::tie(about, parameters, failure) = std::tuple(i, p, f);
            throw std::runtime_error("stays here");
        });
    const auto first = grow("a.b", "1");
    {
        const auto fails = snowballs->RegisterSnowballHandler(
            "a.b",
            [](auto&&, auto&&, auto&, auto& e, auto&&) {
                e = make_payload(std::string("partial"));
                throw std::runtime_error("failed");
            },
            "fails");
        const auto last = grow("*", "3");
        EXPECT_THROW(send("a.b", {{"monitoring_message_pid", 1}}), std::runtime_error);
    }
    EXPECT_EQ(result(), "1");
    EXPECT_TRUE(error_response);
    ASSERT_EQ(about.called_handlers.size(), 1u);
    EXPECT_EQ(about.called_handlers[0].description, "1");
    EXPECT_EQ(about.called_handlers[0].level, 2);
    EXPECT_FALSE(std::isnan(about.called_handlers[0].cpu_time));
    EXPECT_EQ(about.current_handler->description, "fails");
    EXPECT_FALSE(std::isnan(about.current_handler->elapsed_time));
    EXPECT_EQ(exceptions::brief_text(failure), "failed");
    EXPECT_EQ(parameters.at("monitoring_message_id").number, before + 1);
    EXPECT_EQ(parameters.at("monitoring_message_pid").number, 1);

    send("a.b", {{"monitoring_message_id", 5}});
    EXPECT_EQ(parameters.size(), 1u);
    EXPECT_FALSE(failure);
    EXPECT_FALSE(about.current_handler);
    EXPECT_GE(about.elapsed_time, about.called_handlers.at(0).elapsed_time);

    const auto empty = snowballs->RegisterSnowballHandler("a.b", nullptr, "empty");
    EXPECT_THROW(send("a.b"), std::bad_function_call);
}

TEST_F(SnowballRouting, HandlersMayComeAndGoDuringAPass) {
    const test::log_capture log(0);
    cookie itself, dropped, later;
    itself = snowballs->RegisterSnowballHandler(
        "a",
        [&](auto&&...) {
            itself.reset();
            dropped.reset();
            later = grow("*", "later");
        },
        "itself");
    dropped = grow("a", "dropped");
    send("a");
    EXPECT_EQ(result(), "none");
    send("a");
    EXPECT_EQ(result(), "later");
    EXPECT_THROW(grow("a*", "x"), exceptions::error);
    ASSERT_EQ(log.lines().size(), 4u);
    EXPECT_EQ(log.lines()[0].text, "Registering snowball handler for a.");
    EXPECT_EQ(log.lines()[3].text, "Registering snowball handler for a*.");
}

TEST_F(SnowballRouting, DroppingACookieWaitsForCallsOnOtherThreads) {
    platform::event entered(platform::reset_mode::manual, false);
    platform::event leave(platform::reset_mode::manual, false);
    auto slow = snowballs->RegisterSnowballHandler(
        "a",
        [&](auto&&...) {
            entered.set();
            EXPECT_TRUE(leave.wait(platform::patience));
        },
        "slow");
    const std::jthread sender([&] { send("a"); });
    ASSERT_TRUE(entered.wait(platform::patience));
    platform::watched_thread dropper([&] { slow.reset(); });
    EXPECT_TRUE(dropper.falls_asleep());
    leave.set();
    dropper.join();
}

} // namespace
} // namespace zel::event_routing::impl
