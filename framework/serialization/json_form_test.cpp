#include "framework/serialization/payload_test.h"

#include <cmath>

namespace zel::serialization {
namespace {

template <class T>
T value_of(const Json::Value& document) {
    T value{};
    FromJson(document, value);
    return value;
}

template <class T>
T value_of(const char* text) {
    return value_of<T>(json_from_text(text));
}

template <class T>
std::string failure_of_reading(const char* text) {
    return failure_of([&] { value_of<T>(text); });
}

template <class T>
std::string text_of(const T& value) {
    return json_to_text(ToJson(value));
}

const std::string overflow = "zel::serialization::FromJson: Numeric value overflow.";

Json::Value nested(unsigned levels) {
    Json::Value document(Json::arrayValue);
    for (unsigned level = 1; level < levels; ++level) {
        Json::Value outer(Json::arrayValue);
        outer.append(std::move(document));
        document = std::move(outer);
    }
    return document;
}

TEST(JsonForm, HasAMemberPerFieldAndReadsBack) {
    sample value = filled_sample();
    EXPECT_EQ(value_of<sample>(text_of(value).c_str()), value);
    value.named.clear();
    value.inside.clear();
    EXPECT_EQ(text_of(value),
              R"({"bits":[true,false],"flag":true,"inside":[],"large":18446744073709551614,)"
              R"("maybe":-3,"named":{},"ratio":1.5,"sorted":{"k":6},"text":")"
              "a\xC3\xA9"
              R"(","tiny":-2,"two":[4,5],"where":{"name":"right","value":7}})");
    EXPECT_EQ(ToJson(value), json_from_text(text_of(value))) << "equal numbers are equal";
    EXPECT_EQ(text_of(std::tuple<>()), "[]");
    EXPECT_EQ(value_of<std::tuple<>>("[]"), std::tuple<>());
    EXPECT_EQ(text_of(std::pair(std::optional<int>(), std::vector<std::string>())), "[null,[]]");
}

TEST(JsonForm, SaysWhatIsWrongAndWhere) {
    const std::string text = "zel::serialization::FromJson: ";
    EXPECT_EQ(failure_of_reading<std::tuple<>>("[1]"),
              text + "Array size is not he same as tuple size.");
    EXPECT_EQ(failure_of_reading<std::tuple<>>("{}"), text + "Array value expected.");
    using pair = std::pair<int, std::string>;
    EXPECT_EQ(failure_of_reading<pair>("[1,2,3]"), text + "Array size should be exactly 2.");
    EXPECT_EQ(failure_of_reading<pair>("7"), text + "Array value expected.");
    EXPECT_EQ(failure_of_reading<pair>("[1,2]"), text + "String value expected. at [1]");
    using three = std::array<int, 3>;
    EXPECT_EQ(failure_of_reading<three>("[1]"), text + "Array size should be exactly 3.");
    EXPECT_EQ(value_of<std::vector<int>>("null"), std::vector<int>());
    EXPECT_EQ(failure_of_reading<std::vector<int>>("4"),
              "zel::serialization::SeqContainerFromJson: Array value expected.");
    EXPECT_EQ(failure_of_reading<bool>("1"), text + "Boolean value expected.");
    EXPECT_EQ(failure_of_reading<std::vector<int>>("[1,true]"),
              text + "Numeric value expected. at [1]");
    EXPECT_EQ(failure_of_reading<sample>("12"), text + "Boolean value expected. at flag");
    Json::Value document = ToJson(filled_sample());
    document["named"]["n"]["inside"][0] = ToJson(sample());
    document["named"]["n"]["inside"][0].removeMember("text");
    EXPECT_EQ(failure_of([&] { value_of<sample>(document); }),
              text + "String value expected. at named.n.inside[0].text");
    document["named"] = 1;
    EXPECT_EQ(failure_of([&] { value_of<sample>(document); }),
              "zel::serialization::MapFromJson: Object value expected. at named");
}

template <class Integer>
void expect_exact_limits(Integer) {
    using limits = std::numeric_limits<Integer>;
    for (const Integer value : {limits::min(), limits::max()})
        EXPECT_EQ(value_of<Integer>(text_of(value).c_str()), value);
    for (const char* beyond : {"18446744073709551616", "-9223372036854775809", "1e300", "-1e300"})
        EXPECT_EQ(failure_of_reading<Integer>(beyond), overflow) << beyond;
    EXPECT_EQ(failure_of([] { value_of<Integer>(Json::Value(std::nan(""))); }), overflow);
}

TEST(JsonForm, KeepsNumbersExactOrRefusesThem) {
    std::apply([](auto... any) { (expect_exact_limits(any), ...); },
               std::tuple<std::int8_t, std::uint8_t, std::int16_t, std::uint32_t, std::int64_t,
                          std::uint64_t>());
    EXPECT_EQ(failure_of_reading<std::int8_t>("128"), overflow);
    EXPECT_EQ(failure_of_reading<std::int64_t>("9223372036854775808"), overflow);
    EXPECT_EQ(failure_of_reading<std::uint64_t>("-1"), overflow);
    EXPECT_EQ(value_of<int>("2.75"), 2);
    EXPECT_EQ(value_of<std::uint8_t>("-0.5"), 0);
    EXPECT_EQ(value_of<double>(text_of(1.0 / 3).c_str()), 1.0 / 3);
    EXPECT_EQ(failure_of_reading<float>("1e39"), overflow);
    EXPECT_EQ(failure_of_reading<double>("1e400"), overflow);
    EXPECT_EQ(failure_of([] {
                  ToJson(std::vector<double>{0, NAN});
              }),
              "zel::serialization::ToJson: Numeric value overflow. at [1]");
}

TEST(JsonForm, KnowsAnEnumerationByNumberAndByName) {
    const std::string text = "zel::serialization::impl::EnumConversionMaps<enum side>::";
    EXPECT_EQ(text_of(side::right), R"({"name":"right","value":7})");
    EXPECT_EQ(text_of(side(8)), R"({"value":8})");
    for (const char* right : {"7", "7.0", R"("right")", R"({"name":"right"})",
                              R"({"value":7,"name":"left"})", R"({"value":7,"name":5})"})
        EXPECT_EQ(value_of<side>(right), side::right) << right;
    EXPECT_EQ(value_of<side>("12"), side(12));
    EXPECT_EQ(failure_of_reading<side>("2147483648"), overflow);
    EXPECT_EQ(failure_of_reading<side>(R"({"value":1e300})"), overflow + " at value");
    EXPECT_EQ(failure_of_reading<side>(R"("Right")"), text + "FromString: unknown enum name.");
    EXPECT_EQ(failure_of_reading<side>("null"), text + "EnumFromJson: Object value expected.");
    EXPECT_EQ(failure_of_reading<side>(R"({"value":"7"})"),
              text + "FromNumber: numeric value expected. at value");
    EXPECT_EQ(failure_of_reading<side>(R"({"name":7})"),
              text + "FromString: string value expected. at name");
    EXPECT_EQ(failure_of_reading<side>("{}"),
              text + "EnumFromJson: Neither 'value' nor 'name' is member of JSON value");

    impl::EnumConversionMaps<side> maps;
    EXPECT_EQ(failure_of([&] { maps.Add(side::left, "new"); }),
              "Duplcate values are not supported");
    EXPECT_EQ(failure_of([&] { maps.Add(side(3), "left"); }), "Duplcate names are not supported");
    EXPECT_EQ(maps.EnumToJson(side(3)).size(), 1u) << "a refused entry leaves nothing behind";
}

TEST(JsonForm, ReplacesBytesThatAreNotUtf8) {
    const std::string well_formed("\0 \x7F \xC2\x80 \xEF\xBF\xBF \xF0\x90\x80\x80", 15);
    EXPECT_EQ(value_of<std::string>(text_of(well_formed).c_str()), well_formed);
    const std::string replaced = "\xEF\xBF\xBD";
    for (const std::string wrong : {"\x80", "\xE2", "\xFF", "\xC0\x80", "\xC1\xBF", "\xF5\x80",
                                    "\xE2\x82", "\xE0\x80\x80", "\xED\xA0\x80"}) {
        std::string expected = "a";
        for (std::size_t i = 0; i < wrong.size(); ++i)
            expected += replaced;
        EXPECT_EQ(ToJson("a" + wrong + "z").asString(), expected + "z");
    }
    EXPECT_EQ(json_to_text(Json::Value("\xFF")), '"' + replaced + '"');
    using numbers = std::map<std::string, int>;
    EXPECT_EQ(failure_of([] {
                  ToJson(numbers{{"\xFE", 1}, {"\xFF", 2}});
              }),
              "zel::serialization::ToJson: Two keys look the same in JSON. at \xFF");
}

TEST(JsonText, IsOneStrictDocument) {
    EXPECT_EQ(json_from_text(" 3 "), Json::Value(3));
    const std::string digits(400, '9');
    for (const auto& huge : {"[1, -1e400]", "{\"a\": 1.5E+999}", digits.c_str()})
        EXPECT_EQ(failure_of([&] { json_from_text(huge); }), overflow) << huge;
    for (const char* small : {"1e-400", R"("a \"1e400")"})
        EXPECT_EQ(failure_of([&] { json_from_text(small); }), "");
    const char* const wrong_documents[] = {
        "", "{", "1 2", "[1,]", "{\"a\":1,\"a\":2}", "// c\n1", "nan",
        // The reader's own words for these look as if a huge number were meant.
        "[1e400, x]", "[1e400", R"(["1e400' is not a number.)",
        R"({"1e400' is not a number.": 1, 2})"};
    for (const char* wrong : wrong_documents) {
        const std::string failure = failure_of([&] { json_from_text(wrong); });
        EXPECT_TRUE(failure.starts_with("zel::serialization: Not a JSON document: ")) << wrong;
    }
}

TEST(JsonText, GoesNoDeeperThanItsLimitInEitherDirectionAndDestroysAnyDepth) {
    const std::string deepest = json_to_text(nested(deepest_nesting));
    EXPECT_EQ(json_from_text(deepest), nested(deepest_nesting));
    std::string around_a_number = deepest;
    around_a_number.insert(deepest.size() / 2, "1");
    EXPECT_EQ(json_to_text(json_from_text(around_a_number)), around_a_number);
    EXPECT_EQ(failure_of([&] { json_from_text('[' + deepest + ']'); }), too_deep);
    EXPECT_EQ(failure_of([] { json_to_text(nested(deepest_nesting + 1)); }), too_deep);
    EXPECT_NE(failure_of([&] { json_from_text(std::string(1000000, '[')); }), "");
    EXPECT_EQ(failure_of([] {
                  ToJson(chain_of(deepest_nesting + 1));
              }).find(too_deep + " at inside[0].inside[0]"),
              0u);

    json_data_t held; // destroys more levels than a stack holds
    held.MutableValue() = nested(300000);
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(failure_of([&] { held.GetSerializedData(&data, &size); }), too_deep);
}

} // namespace
} // namespace zel::serialization
