// Snowball passes as senders and handlers see them.
#include "tests/support/routing.h"

#include <event_routing/typed.h>

namespace zel::event_routing::impl {
namespace {

using serialization::make_payload;

class SnowballRouting : public Routing {
protected:
    // Appends its name to the text in the response.
    cookie grow(const std::string& path, const std::string& name) {
        const auto grows = [=](std::string& so_far, auto&&) { so_far += name; };
        return collect(path, Snowball<std::string>::SnowballHandler(grows));
    }
    std::string result_of(const std::string& path) {
        roll(path);
        return text_of(response);
    }
};

TEST_F(SnowballRouting, GrowsFromTheMostSpecificHandlerToTheLeast) {
    const cookies handlers = {grow("*", "4"), grow("a.*", "3"), grow("a.b", "1"), grow("a.b", "2"),
                              grow("a.b.*", "x")};
    EXPECT_EQ(result_of("a.b"), "1234");
    response = make_payload(std::string("start "));
    const auto kept_by_another = response;
    EXPECT_EQ(result_of("a.b"), "start 1234");
    EXPECT_EQ(text_of(kept_by_another), "start ") << "what others hold does not change";
    response = make_payload(std::string("start "));
    const auto only_its_data = response->GetData();
    roll("a.b");
    EXPECT_NE(response->GetData(), only_its_data);
    response = error_response = make_payload(1);
    roll("a.b");
    EXPECT_EQ(response, error_response) << "a result of another type is left alone";
    EXPECT_EQ(Snowball<std::string>::Send(*snowballs, "a.c", {}, "s"), "s34");
    EXPECT_EQ((Snowball<std::string, std::int32_t>::Send(*snowballs, "a.c", 1, "s")), "s")
        << "a payload of another type";
}

TEST_F(SnowballRouting, AFailedHandlerEndsThePass) {
    const cookies handlers = {grow("a", "1"),
                              snowballs->RegisterSnowballHandler(
                                  "a",
                                  [](auto&&, auto&&, auto&, auto& e, auto&&) {
                                      e = make_payload(std::string("partial"));
                                      throw std::runtime_error("failed");
                                  },
                                  "fails"),
                              grow("*", "3"),
                              snowballs->RegisterSnowballHandler("b", nullptr, "empty")};
    EXPECT_THROW(roll("a"), std::runtime_error);
    EXPECT_EQ(text_of(response) + text_of(error_response), "1partial");
    EXPECT_THROW(roll("b"), std::bad_function_call);
}

} // namespace
} // namespace zel::event_routing::impl
