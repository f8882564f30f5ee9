#include "framework/event_routing/src/event_routing/enumeration_types.h"

#include "framework/serialization/payload_test.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/exceptions.h>

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

TEST(EnumerationTypes, AreKnownOnceTheyAreRegistered) {
    register_enumeration_types();
    std::shared_ptr<IDataHolder> holder;
    EXPECT_NE(MakeDataValue<input>(holder), nullptr);
    EXPECT_NE(MakeDataValue<output>(holder), nullptr);
    EXPECT_NE(MakeDataValue<output_2>(holder), nullptr);
    EXPECT_EQ(holder->GetData()->GetTypeName(),
              "struct std::pair<class std::vector<struct "
              "zel::event_routing::enumerate_handlers::handler_list_2,class std::allocator<struct "
              "zel::event_routing::enumerate_handlers::handler_list_2> >,class std::tuple<> >");
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
