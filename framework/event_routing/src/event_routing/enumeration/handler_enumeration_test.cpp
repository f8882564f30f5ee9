#include "framework/event_routing/src/event_routing/enumeration/handler_enumeration.h"

#include "framework/event_routing/src/event_routing/module/module_reference.h"
#include "framework/serialization/payload_test.h"
#include "tests/support/routing.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/exceptions.h>
#include <event_routing/typed.h>

namespace zel::event_routing::impl {
namespace {

using namespace enumerate_handlers;
using namespace serialization;

TEST(EnumerationTypes, HaveTheirBinaryForms) {
    out_blob_stream out;
    Serialize(out, output_2{{{handler_type::event, {{"a.b", "d"}}, "x"}}, {}});
    EXPECT_EQ(out.take(), byte_vector({1, 0,   0,   0,   1, 0, 0, 0, 1,   0, 0, 0, 3, 0,  0,
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

    EXPECT_EQ(failure_of([&] { FromJson(json_from_text(R"([[{"type":"Event"}],[]])"), read); }),
              "zel::serialization::impl::EnumConversionMaps<enum "
              "zel::event_routing::enumerate_handlers::handler_type>::FromString: unknown enum "
              "name. at [0][0].type");
    output first_form;
    FromJson(json_from_text(R"([[{"type":"snowball","handlers":[]}],[]])"), first_form);
    EXPECT_EQ(first_form, (output{{{handler_type::snowball, {}}}, {}}));
}

class HandlerEnumeration : public testing::Test {
protected:
    static constexpr const char* first = "event_routing.enumerate_handlers";
    static constexpr const char* second = "event_routing.enumerate_handlers2";

    request_answer ask(const std::string& path, const request_data& data) {
        request_answer response, error_response;
        EXPECT_TRUE(requests->SendRequest(path, data, response, error_response, {}));
        EXPECT_EQ(error_response, nullptr);
        return response;
    }

    std::shared_ptr<IModule> module = std::make_shared<ThisModule>();
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

    const auto named = module->GetNamedEventRouting("y");
    module->GetNamedEventRouting("");
    const cookies held = {
        module->GetEventRouting()->RegisterEventHandler(nullptr, "a.*", nullptr, nullptr, "e"),
        named->RegisterEventHandler(nullptr, "b", nullptr, nullptr, "n"),
        requests->RegisterRequestHandler("c.d", 1, nullptr, "r"),
        requests->RegisterRequestFallbackHandler("unlisted", nullptr, "f"),
        module->GetSnowballRouting()->RegisterSnowballHandler("*", nullptr, "s")};
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

TEST_F(HandlerEnumeration, GivesWayToComponentsDeclinesOtherDataAndEndsWithTheModule) {
    EXPECT_THROW(ask(first, nullptr), request_was_not_processed);
    EXPECT_THROW(ask(first, make_payload(std::string("x"))), request_was_not_processed);
    Json::Value one(Json::arrayValue);
    one.append(1);
    EXPECT_EQ(failure_of([&] { ask(first, make_json_payload(one)); }),
              "zel::serialization::FromJson: Array size is not he same as tuple size.");
    {
        const auto cookie = requests->RegisterRequestHandler(
            first, 0, [](auto&&...) { return true; }, "in its place");
        EXPECT_EQ(ask(first, make_payload(input())), nullptr);
    }
    module.reset();
    for (const char* path : {first, second})
        EXPECT_THROW(ask(path, make_payload(input())), request_was_not_processed);
}

TEST(NamedEventRouting, IsOneInstanceForEachName) {
    const auto module = std::make_shared<ThisModule>();
    auto found = found_by_threads([&] { return module->GetNamedEventRouting("x"); });
    EXPECT_EQ(found.size(), 1u);
    EXPECT_FALSE(found.contains(module->GetNamedEventRouting("X")));
    EXPECT_NE(module->GetNamedEventRouting(""), module->GetEventRouting());
    const std::weak_ptr watched = *found.begin();
    found.clear();
    EXPECT_FALSE(watched.expired());
}

TEST(DataTypeNotRegistered, NamesRequestAndType) {
    // Registered by nobody: by Request for instance, which does so first.
    using never = std::pair<std::array<std::int64_t, 97>, std::tuple<>>;
    const std::string name(kept_type_name<never>());
    const auto callable = [] { return never::first_type(); };
    CustomRequestHandler<std::tuple<>, never, decltype(callable)> handler(callable);
    std::shared_ptr<serialization::IDataHolder> response, error_response;
    EXPECT_EQ(failure_of([&] {
                  handler("a.b", make_payload(std::tuple<>()), response, error_response, {});
              }),
              "Request a.b: '" + name + "' data type is not registered.");
    const data_type_not_registered failure("Request", "a.b", {{"synchronous", 1}}, name);
    EXPECT_EQ(failure.path() + failure.data_type(), "a.b" + name);
    EXPECT_EQ(failure.parameters().at("synchronous").number, 1);
}

} // namespace
} // namespace zel::event_routing::impl
