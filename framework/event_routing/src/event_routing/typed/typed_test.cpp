// What handlers of C++ types are given, what they may answer, and how they decline.
// tests/mistakes has what the compiler refuses.
#include "framework/exceptions/exceptions.h"
#include "framework/serialization/payload_test.h"
#include "tests/support/routing.h"

#include <event_routing/exceptions.h>
#include <event_routing/typed.h>

namespace zel::event_routing::impl {
namespace {

using serialization::make_payload;

constexpr const char* name_of_string = "class std::basic_string<char,struct std::char_traits<char>,"
                                       "class std::allocator<char> >";
const std::string name_of_one_string = "class std::tuple<" + std::string(name_of_string) + " >";

class TypedHandlers : protected stopped_clock, public Routing {
protected:
    void TearDown() override { events->EndAndWaitForHandlers(); }

    // What typed handlers have said since the last call.
    texts declines() {
        texts said = log_.texts();
        std::erase_if(said,
                      [](const std::string& text) { return !text.starts_with("0 A handler of "); });
        texts since(said.begin() + static_cast<std::ptrdiff_t>(seen_), said.end());
        seen_ = said.size();
        return since;
    }
    static void pass_a_second() { ticks += 10'000'000; }

private:
    test::log_capture log_{log::severity::declined};
    std::size_t seen_ = 0;
};

TEST_F(TypedHandlers, AreGivenPathAndParametersIfTheyWant) {
    const auto notes_head = [this](const message_head& head) {
        note(head.path + std::to_string(number_or(head.parameters, "n", 0)));
    };
    using Length = Request<std::uint64_t, std::string>;
    using Menu = Snowball<std::string>;
    using Saved = Event<std::string>;
    const cookies handlers = {
        answer("r", Length::RequestHandler([&](auto& text, const message_head& head) {
                   notes_head(head);
                   return text.size();
               })),
        collect("s.*", Menu::SnowballHandler([&](auto& so_far, auto&, const message_head& head) {
                    so_far += head.path;
                })),
        listen(
            "e", Saved::SynchronousPart([&](auto&, const message_head& head) {
                notes_head(head);
                return true;
            }),
            Saved::AsynchronousPart([&](auto&, const message_head& head) { notes_head(head); }))};
    EXPECT_EQ(Length::Ask(*requests, "r", "four", {{"n", 1}}).value, 4u);
    EXPECT_EQ(Menu::Send(*snowballs, "s.t", {}), "s.t");
    Saved::Broadcast(*events, "e", "text", {{"n", 2}, {parameter::synchronous, -1}});
    EXPECT_EQ(taken_notes(), "r1 e2 e2");
}

TEST_F(TypedHandlers, AnswerRequestsWithValuesWithErrorsOrNotAtAll) {
    using Length = Request<std::uint32_t, std::string>;
    using Print = Request<void, std::string>;
    const auto length = [](const std::string& text) -> typed_answer<std::uint32_t> {
        if (text == "bad")
            return {std::nullopt, make_payload(std::string("no length"))};
        return text.empty() ? typed_answer<std::uint32_t>()
                            : typed_answer<std::uint32_t>{text.size(), nullptr};
    };
    const auto fails = [](const std::string& text) -> typed_answer<void> {
        return {false, make_payload("no paper for " + text)};
    };
    const auto with_a_response = [](auto&, auto&, request_answer& unasked, auto&&...) {
        unasked = make_payload(5);
        return true;
    };
    const cookies handlers = {
        answer("length", Length::RequestHandler(length)),
        answer("text", Request<std::string>::RequestHandler([] { return "made of a literal"; })),
        answer("try", Print::RequestHandler([](const std::string& text) { return !text.empty(); })),
        answer("fail", Print::RequestHandler(fails)), answer("plain", with_a_response)};
    EXPECT_EQ(Length::Ask(*requests, "length", "four").value, 4u);
    EXPECT_EQ(Request<std::string>::Ask(*requests, "text").value, "made of a literal");
    EXPECT_TRUE(Print::Ask(*requests, "try", "letter"));
    EXPECT_TRUE(Print::Ask(*requests, "plain", "")) << "the response is not looked at";
    for (const auto& parameters : {routing_parameters(), without_failure}) {
        const auto bad = Length::Ask(*requests, "length", "bad", parameters);
        EXPECT_TRUE(!bad && text_of(bad.error) == "no length");
        const auto failed = Print::Ask(*requests, "fail", "letter", parameters);
        EXPECT_TRUE(!failed && text_of(failed.error) == "no paper for letter");
    }
    EXPECT_THROW(Length::Ask(*requests, "length", ""), request_was_not_processed);
    EXPECT_THROW(Print::Ask(*requests, "try", ""), request_was_not_processed);
    const auto nobody = Length::Ask(*requests, "length", "", without_failure);
    EXPECT_TRUE(!nobody && !nobody.error && !Print::Ask(*requests, "try", "", without_failure));
    using OtherOutput = Request<std::string, std::string>;
    EXPECT_THROW(OtherOutput::Ask(*requests, "length", "four"), exceptions::error);
    using OtherInput = Request<std::uint32_t, std::int32_t>;
    EXPECT_THROW(OtherInput::Ask(*requests, "length", 4), request_was_not_processed);
}

TEST_F(TypedHandlers, LeaveTheResponseAsItWasUnlessTheyAnswer) {
    using Length = Request<std::uint64_t, std::string>;
    const auto before = make_payload(std::string("before"));
    const auto answers = [&](const request_handler& handler) {
        response = before;
        error_response = nullptr;
        const bool processed = handler("r", make_payload(std::tuple(std::string("four"))), response,
                                       error_response, {});
        EXPECT_EQ(error_response, nullptr);
        return processed;
    };
    const auto fails =
        Length::RequestHandler([](auto&) -> std::uint64_t { throw std::runtime_error("fails"); });
    EXPECT_THROW(answers(fails), std::runtime_error);
    EXPECT_EQ(response, before);
    struct no_data final : serialization::IDataHolder {
        std::shared_ptr<serialization::IData> GetData() const override { return nullptr; }
    };
    const auto declines = Length::RequestHandler([](auto&) {
        return typed_answer<std::uint64_t>{std::nullopt, std::make_shared<no_data>()};
    });
    EXPECT_FALSE(answers(declines));
    EXPECT_EQ(response, before);
    EXPECT_TRUE(answers(Length::RequestHandler([](auto& text) { return text.size(); })));
    EXPECT_NE(response, before);
}

TEST_F(TypedHandlers, AreNotMadeOfEmptyCallables) {
    using serialization::failure_of;
    using Length = Request<int, std::string>;
    using Menu = Snowball<std::string>;
    using Saved = Event<std::string>;
    const std::function<int(const std::string&)> no_answer;
    const std::function<bool(const std::string&)> no_part;
    const std::function<void(const std::string&)> no_later_part;
    void (*const no_addition)(std::string&, const std::tuple<>&) = nullptr;
    const std::string text = ": the callable is empty.";
    EXPECT_EQ(failure_of([&] { static_cast<void>(Length::RequestHandler(no_answer)); }),
              "Request::RequestHandler" + text);
    EXPECT_EQ(failure_of([&] { static_cast<void>(Menu::SnowballHandler(no_addition)); }),
              "Snowball::SnowballHandler" + text);
    EXPECT_EQ(failure_of([&] { static_cast<void>(Saved::SynchronousPart(no_part)); }),
              "Event::SynchronousPart" + text);
    EXPECT_EQ(failure_of([&] { static_cast<void>(Saved::AsynchronousPart(no_later_part)); }),
              "Event::AsynchronousPart" + text);
}

TEST_F(TypedHandlers, SayOnceASecondThatTheyDeclineBecauseOfTheType) {
    using Length = Request<std::uint64_t, std::string>;
    const auto length = Length::RequestHandler([](auto& text) { return text.size(); });
    const cookies handlers = {answer("r", length), fallback("r", length)};
    data = make_payload(5);
    EXPECT_FALSE(ask("r", without_failure));
    const std::string declined = "0 A handler of '" + name_of_one_string + "' declines ";
    EXPECT_EQ(declines(), texts(2, declined + "'int' along r.")) << "each handler by itself";
    data = make_payload(true);
    EXPECT_FALSE(ask("r", without_failure));
    EXPECT_EQ(declines(), texts());
    pass_a_second();
    EXPECT_FALSE(ask("r", without_failure));
    EXPECT_EQ(declines(), texts(2, declined + "'bool' along r."));

    const cookies others = {
        collect("s", Snowball<std::string, int>::SnowballHandler([](auto&, auto&) {})),
        listen("e", Event<std::string>::SynchronousPart([](auto&) { return true; }),
               Event<int>::AsynchronousPart([](auto&) {}))};
    data = nullptr;
    roll("s");
    broadcast("e", until_ended);
    Json::Value wrapped;
    wrapped["zel.data_type"] = "struct other";
    wrapped["zel.data"] = 1;
    data = serialization::make_json_payload(wrapped);
    pass_a_second();
    broadcast("e");
    EXPECT_FALSE(ask("r", without_failure));
    data = make_payload(5);
    response = make_payload(6);
    roll("s");
    const std::string text = "0 A handler of '" + std::string(name_of_string) + "' declines ";
    EXPECT_EQ(declines(),
              (texts{"0 A handler of 'int' declines no data along s.", text + "no data along e.",
                     text + "'struct other' along e.", declined + "'struct other' along r.",
                     declined + "'struct other' along r.", text + "'int' along s."}));
    EXPECT_EQ(Length::Ask(*requests, "r", "four").value, 4u);
    EXPECT_EQ(declines(), texts()) << "nothing to say about data that fit";
}

TEST_F(TypedHandlers, AreNamedByTheFailureOfARequestThatTheyDeclined) {
    using Length = Request<std::uint64_t, std::string>;
    const auto length =
        Length::RequestHandler([](auto&) { return std::optional<std::uint64_t>(); });
    const auto declined = [&](const routing_parameters& parameters = {}) {
        try {
            ask("a.b", parameters);
        } catch (const request_was_not_processed& failure) {
            return std::vector<declined_handler>(failure.declined());
        }
        return std::vector<declined_handler>();
    };
    EXPECT_TRUE(declined().empty());
    EXPECT_THROW(ask("a.b"), request_was_not_processed);
    cookie dropped;
    const cookies handlers = {fallback("*", length, "fallback"), answer("a.b", length, "exact"),
                              answer("a.*", notes("plain", false), "plain"),
                              redirect("a.b", length, "redirection"),
                              answer(
                                  "a.b",
                                  [&](auto&&...) {
                                      dropped.reset();
                                      return false;
                                  },
                                  "drops")};
    dropped = answer("a.b", length, "dropped");
    data = make_payload(5);
    const auto& wanted = name_of_one_string;
    EXPECT_EQ(declined(), (std::vector<declined_handler>{{2, "redirection", wanted},
                                                         {2, "exact", wanted},
                                                         {2, "drops", ""},
                                                         {1, "plain", ""},
                                                         {0, "fallback", wanted}}));
    data = make_payload(std::tuple(std::string("four")));
    EXPECT_EQ(declined({{parameter::skip_request_fallbacks, 0}}),
              (std::vector<declined_handler>{
                  {2, "redirection", ""}, {2, "exact", ""}, {2, "drops", ""}, {1, "plain", ""}}))
        << "for reasons of their own";
    data = serialization::make_json_payload(serialization::json_from_text(R"(["four"])"));
    EXPECT_EQ(declined().back(), (declined_handler{0, "fallback", ""}));
}

} // namespace
} // namespace zel::event_routing::impl
