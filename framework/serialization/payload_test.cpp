#include "framework/serialization/payload_test.h"

#include <latch>
#include <thread>

namespace zel::serialization {
namespace {

template <class Call>
void on_many_threads(Call call) {
    std::latch start(8);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 8; ++thread)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            call();
        });
}

byte_vector bytes_of(const IData& data) {
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
    data.GetSerializedData(&bytes, &size);
    EXPECT_NE(bytes, nullptr);
    return {bytes, bytes + size};
}

TEST(ConcreteData, HoldsAValueOrBytesOrBoth) {
    SerializableData<std::string> data;
    const std::string name = "zel::serialization::ConcreteData<class std::basic_string<char,struct "
                             "std::char_traits<char>,class std::allocator<char> > >::";
    EXPECT_EQ(failure_of([&] { data.Value(); }), name + "Value: Invalid data.");
    EXPECT_EQ(failure_of([&] { bytes_of(data); }), name + "GetSerializedData: Invalid data.");

    data.MutableValue() = "ab";
    const byte_vector bytes = {2, 0, 0, 0, 'a', 'b'};
    EXPECT_EQ(bytes_of(data), bytes);
    data.SetSerializedData(byte_vector{1, 0, 0, 0, 'c'}.data(), 5);
    EXPECT_EQ(data.MutableValue(), "c") << "the bytes became the value";
    data.MutableValue() = "ab";
    EXPECT_EQ(bytes_of(data), bytes) << "the bytes became those of the new value";

    data.SetSerializedData(bytes.data(), 5);
    EXPECT_THROW(data.Value(), std::runtime_error);
    EXPECT_EQ(bytes_of(data).size(), 5u) << "a value that cannot be read leaves the bytes";
    EXPECT_THROW(data.Value(), std::runtime_error);

    SerializableData<std::tuple<>> nothing;
    nothing.SetSerializedData(nullptr, 0);
    EXPECT_EQ(nothing.Value(), std::tuple<>());
    EXPECT_EQ(bytes_of(nothing), byte_vector()); // and their address is not null
    EXPECT_EQ(failure_of([] { SerializableData<std::tuple<>>().Value(); }),
              "zel::serialization::ConcreteData<class std::tuple<> >::Value: Invalid data.");

    struct local_data : SerializableData<std::tuple<>> {
        bool IsSerializable() const override { return false; }
    } local;
    local.MutableValue();
    EXPECT_EQ(failure_of([&] { bytes_of(local); }),
              "zel::serialization::ConcreteData<class std::tuple<> >::GetSerializedData: "
              "Not a serializeable data.");
}

struct counting_data final : SerializableData<int> {
    void Serialize(const int& value, byte_vector& out) const override {
        ++conversions;
        std::this_thread::yield();
        SerializableData::Serialize(value, out);
    }
    void Deserialize(int& out, const byte_vector& bytes) const override {
        ++conversions;
        std::this_thread::yield();
        SerializableData::Deserialize(out, bytes);
    }
    mutable std::atomic<int> conversions{0};
};

TEST(ConcreteData, ConvertsOnceHoweverManyThreadsAsk) {
    counting_data made, received;
    made.MutableValue() = 5;
    received.SetSerializedData(byte_vector{6, 0, 0, 0}.data(), 4);
    std::atomic<int> sum{0};
    on_many_threads([&] { sum += bytes_of(made)[0] + received.Value(); });
    EXPECT_EQ(sum, 88);
    EXPECT_TRUE(made.conversions == 1 && received.conversions == 1);
}

TEST(Payload, IsReadWhereItLiesOrFromJson) {
    const auto data = make_payload(filled_sample());
    sample scratch;
    const sample* const value = GetDataValue(data, scratch);
    ASSERT_TRUE(value && value != &scratch);
    EXPECT_EQ(*value, filled_sample());
    std::tuple<> other;
    EXPECT_EQ(GetDataValue(data, other), nullptr);
    EXPECT_EQ(GetDataValue<sample>(nullptr, scratch), nullptr);

    Json::Value document = ToJson(*value);
    EXPECT_EQ(GetDataValue(make_json_payload(document), scratch), &scratch);
    EXPECT_EQ(scratch, filled_sample());
    document["inside"][1]["tiny"] = 1000;
    const auto wrapped =
        make_json_payload(get_json_conversion_module()->WrapDocument("struct sample", document));
    EXPECT_EQ(failure_of([&] { GetDataValue(wrapped, scratch); }),
              "zel::serialization::FromJson: Numeric value overflow. at zel.data.inside[1].tiny");
}

TEST(Payload, OfAnUnregisteredTypeIsNotMade) {
    using unknown = std::tuple<int>;
    const Json::Value document = json_from_text("[1]");
    auto holder = make_payload(std::string("before"));
    EXPECT_EQ(MakeDataValue<unknown>(holder), nullptr);
    EXPECT_EQ(holder, nullptr) << "what was there is gone all the same";
    const auto json = get_json_conversion_module();
    EXPECT_EQ(json->CreateFromJson(type_name<unknown>(), document), nullptr);
    EXPECT_EQ(DataFromJsonLambda<unknown>()(document), nullptr);
    on_many_threads([] { register_data_type<unknown>(); });
    ASSERT_NE(MakeDataValue<unknown>(holder), nullptr);
    EXPECT_EQ(bytes_of(*holder->GetData()), byte_vector(4));
}

TEST(Payload, IsConvertedByTheNameOfItsType) {
    register_data_type<sample>();
    const auto json = get_json_conversion_module();
    const Json::Value document = ToJson(filled_sample());
    const auto holder = json->CreateFromJson("struct sample", document);
    EXPECT_EQ(json->ToJson(holder), document);
    EXPECT_EQ(json->CreateFromJson("struct sample", Json::Value()), nullptr);
    EXPECT_EQ(DataToJsonLambda<std::tuple<>>()(holder), Json::Value()) << "of another type";
    EXPECT_EQ(json->ToJson(nullptr), Json::Value());
    EXPECT_EQ(json->ToJson(json->CreateFromJson("string", "a")), "a");
    const auto any = get_bin_serialization_module()->CreateData("json");
    const auto bytes = reinterpret_cast<const std::uint8_t*>("[1]");
    any->GetData()->SetSerializedData(bytes, 3);
    EXPECT_EQ(json->ToJson(any), json_from_text("[1]"));
    any->GetData()->SetSerializedData(bytes, 2);
    EXPECT_THROW(json->ToJson(any), exceptions::error);
    EXPECT_EQ(json_to_text(json->WrapDocument("a", 1)), R"({"zel.data":1,"zel.data_type":"a"})");
}

TEST(BinSerializationModule, UsesTheFirstOfSeveralFactoriesWhileItIsRegistered) {
    const auto module = get_bin_serialization_module();
    const auto first_data = std::make_shared<string_data_t>();
    const auto second_data = std::make_shared<string_data_t>();
    auto first = module->RegisterDataType("twice", [=] { return first_data; });
    auto second = module->RegisterDataType("twice", [=] { return second_data; });
    EXPECT_EQ(module->CreateData("twice")->GetData(), first_data);
    first.reset();
    EXPECT_EQ(module->CreateData("twice")->GetData(), second_data);
    second.reset();
    EXPECT_EQ(module->CreateData("twice"), nullptr);
    EXPECT_EQ(first_data.use_count(), 1) << "a dropped factory is destroyed";
    EXPECT_EQ(failure_of([&] { static_cast<void>(module->RegisterDataType("none", nullptr)); }),
              "RegisterDataType: no factory for 'none'.");
}

TEST(TypeNames, AreComposedOfTheNamesOfTheirParts) {
    EXPECT_EQ((type_name<std::pair<std::vector<bool>, std::tuple<>>>()),
              "struct std::pair<class std::vector<bool,class std::allocator<bool> >,"
              "class std::tuple<> >");
    EXPECT_EQ((type_name<std::map<int, std::optional<side>>>()),
              "class std::map<int,class std::optional<enum side>,struct std::less<int>,"
              "class std::allocator<struct std::pair<int const ,class std::optional<enum side> > > "
              ">");
    EXPECT_EQ((type_name<std::array<std::uint64_t, 3>>()), "class std::array<unsigned __int64,3>");
    EXPECT_EQ(kept_type_name<sample>(), "struct sample");
}

} // namespace
} // namespace zel::serialization
