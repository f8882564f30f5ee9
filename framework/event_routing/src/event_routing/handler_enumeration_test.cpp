#include "framework/event_routing/src/event_routing/handler_enumeration.h"

#include "framework/event_routing/src/event_routing/module_reference.h"
#include "framework/serialization/payload_test.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/exceptions.h>
#include <event_routing/typed.h>

#include <thread>

namespace zel::event_routing::impl {
namespace {

using namespace enumerate_handlers;
using namespace serialization;

template <class Output>
byte_vector bytes_of(const Output& answer) {
    out_blob_stream out;
    Serialize(out, answer);
    return out.take();
}

template <class Output>
std::string failure_of_reading(const std::string& text) {
    return failure_of([&] {
        Output answer;
        FromJson(json_from_text(text), answer);
    });
}

TEST(EnumerationTypes, HaveTheirBinaryForms) {
    const output empty{
        {{handler_type::event, {}}, {handler_type::request, {}}, {handler_type::snowball, {}}}, {}};
    EXPECT_EQ(bytes_of(empty), byte_vector({3, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2, 0,
                                            0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0}));
    const output_2 one{{{handler_type::event, {{"a.b", "d"}}, "x"}}, {}};
    EXPECT_EQ(bytes_of(one), byte_vector({1, 0,   0,   0,   1, 0, 0, 0, 1,   0, 0, 0, 3, 0,  0,
                                          0, 'a', '.', 'b', 1, 0, 0, 0, 'd', 1, 0, 0, 0, 'x'}));
}

TEST(EnumerationTypes, HaveTheirJsonForms) {
    const output_2 answer{{{handler_type::event, {{"a.b", "d"}}, "x"}, {handler_type(7), {}, ""}},
                          {}};
    const std::string text = R"([[{"channelId":"x","handlers":[{"description":"d","path":"a.b"}],)"
                             R"("type":{"name":"event","value":1}},)"
                             R"({"channelId":"","handlers":[],"type":{"value":7}}],[]])";
    EXPECT_EQ(json_to_text(ToJson(answer)), text);
    output_2 read;
    FromJson(json_from_text(text), read);
    EXPECT_EQ(read, answer);

    const std::string maps = "zel::serialization::impl::EnumConversionMaps<enum "
                             "zel::event_routing::enumerate_handlers::handler_type>::";
    EXPECT_EQ(failure_of_reading<output>("[[{}],[]]"),
              maps + "EnumFromJson: Object value expected. at [0][0].type");
    EXPECT_EQ(failure_of_reading<output>(R"([[{"type":"Event"}],[]])"),
              maps + "FromString: unknown enum name. at [0][0].type");
    EXPECT_EQ(failure_of_reading<output>(R"([[{"type":1,"handlers":{}}],[]])"),
              "zel::serialization::SeqContainerFromJson: Array value expected. "
              "at [0][0].handlers");
    EXPECT_EQ(failure_of_reading<output>(R"([[{"type":1,"handlers":[{"path":"a"}]}],[]])"),
              "zel::serialization::FromJson: String value expected. "
              "at [0][0].handlers[0].description");
    EXPECT_EQ(failure_of_reading<output_2>(R"([[{"type":"snowball"}],[]])"),
              "zel::serialization::FromJson: String value expected. at [0][0].channelId");
}

class HandlerEnumeration : public testing::Test {
protected:
    static constexpr const char* first = "event_routing.enumerate_handlers";
    static constexpr const char* second = "event_routing.enumerate_handlers2";

    std::shared_ptr<IDataHolder> ask(const char* path, const request_data& data) {
        request_answer response, error_response;
        EXPECT_TRUE(requests->SendRequest(path, data, response, error_response, {}));
        EXPECT_EQ(error_response, nullptr);
        return response;
    }

    const std::shared_ptr<IModule> module = std::make_shared<ThisModule>();
    const std::shared_ptr<IRequestRouting> requests = module->GetRequestRouting();
};

TEST_F(HandlerEnumeration, ListsAllServices) {
    const auto bytes = ask(first, make_payload(input()))->GetData();
    EXPECT_EQ(bytes->GetTypeName(),
              "struct std::pair<class std::vector<struct "
              "zel::event_routing::enumerate_handlers::handler_list,class std::allocator<struct "
              "zel::event_routing::enumerate_handlers::handler_list> >,class std::tuple<> >");
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    bytes->GetSerializedData(&data, &size);
    EXPECT_EQ(byte_vector(data, data + size),
              (byte_vector{3, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2, 0,
                           0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0}));

    const auto fallback = [](auto&&...) { return false; };
    const auto event =
        module->GetEventRouting()->RegisterEventHandler(nullptr, "a.*", nullptr, nullptr, "e");
    const auto named = module->GetNamedEventRouting("y")->RegisterEventHandler(
        nullptr, "b", nullptr, nullptr, "n");
    module->GetNamedEventRouting("");
    const auto request = requests->RegisterRequestHandler("c.d", 1, fallback, "r");
    const auto unlisted = requests->RegisterRequestFallbackHandler("*", fallback, "f");
    const auto snowball = module->GetSnowballRouting()->RegisterSnowballHandler("*", nullptr, "s");
    const handler_texts events{{"a.*", "e"}}, asked{{"c.d", "r"}}, passes{{"*", "s"}};
    output scratch;
    EXPECT_EQ(*GetDataValue(request_data(ask(first, make_json_payload(Json::arrayValue))), scratch),
              (output{{{handler_type::event, events},
                       {handler_type::request, asked},
                       {handler_type::snowball, passes}},
                      {}}));
    output_2 scratch_2;
    EXPECT_EQ(*GetDataValue(request_data(ask(second, make_payload(input()))), scratch_2),
              (output_2{{{handler_type::event, events, ""},
                         {handler_type::event, {{"b", "n"}}, "y"},
                         {handler_type::event, {}, ""},
                         {handler_type::request, asked, ""},
                         {handler_type::snowball, passes, ""}},
                        {}}));
}

TEST_F(HandlerEnumeration, GivesWayToComponentsAndDeclinesOtherData) {
    request_answer response, error_response;
    const auto send = [&](const request_data& data) {
        return requests->SendRequest(first, data, response, error_response, {});
    };
    EXPECT_THROW(send(nullptr), request_was_not_processed);
    EXPECT_THROW(send(make_payload(std::string("x"))), request_was_not_processed);
    Json::Value one(Json::arrayValue);
    one.append(1);
    EXPECT_EQ(failure_of([&] { send(make_json_payload(one)); }),
              "zel::serialization::FromJson: Array size is not he same as tuple size.");
    const auto cookie = requests->RegisterRequestHandler(
        first, 0, [](auto&&...) { return true; }, "in its place");
    EXPECT_TRUE(send(nullptr));
}

TEST(ModuleEnd, TakesItsHandlersBackFromAServiceThatLivesOn) {
    auto module = std::make_shared<ThisModule>();
    const auto requests = module->GetRequestRouting();
    module.reset();
    request_answer response, error_response;
    for (const char* path :
         {"event_routing.enumerate_handlers", "event_routing.enumerate_handlers2"})
        EXPECT_THROW(
            requests->SendRequest(path, make_payload(input()), response, error_response, {}),
            request_was_not_processed);
}

TEST(NamedEventRouting, IsOneInstanceForEachName) {
    const auto module = std::make_shared<ThisModule>();
    std::vector<std::shared_ptr<IEventRouting>> found(8);
    {
        std::vector<std::jthread> askers;
        for (auto& place : found)
            askers.emplace_back([&] { place = module->GetNamedEventRouting("x"); });
    }
    for (const auto& instance : found)
        EXPECT_EQ(instance, found[0]);
    EXPECT_NE(module->GetNamedEventRouting("X"), found[0]);
    EXPECT_NE(module->GetNamedEventRouting(""), module->GetEventRouting());
    const std::weak_ptr<IEventRouting> watched = found[0];
    found.clear();
    EXPECT_FALSE(watched.expired());
}

TEST(DataTypeNotRegistered, NamesRequestAndType) {
    const data_type_not_registered failure("Request", "event_routing.enumerate_handlers",
                                           {{"synchronous", 1}}, "N");
    EXPECT_STREQ(failure.what(),
                 "Request event_routing.enumerate_handlers: 'N' data type is not registered.");
    EXPECT_EQ(failure.path(), "event_routing.enumerate_handlers");
    EXPECT_EQ(failure.parameters().at("synchronous").number, 1);
    EXPECT_EQ(failure.data_type(), "N");
}

} // namespace
} // namespace zel::event_routing::impl
