#include "framework/event_routing/src/event_routing/parameter_bytes.h"

#include "framework/event_routing/src/event_routing/module_reference.h"
#include "framework/exceptions/exceptions.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

using bytes = std::vector<std::uint8_t>;

std::string failure_of(const bytes& malformed) {
    try {
        parameters_from_bytes(malformed);
    } catch (const exceptions::error& failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(ParameterBytes, HaveTheDocumentedLayout) {
    const routing_parameters parameters{{"x", "ab"}, {"synchronous", 1000}};
    const bytes expected{0x0b, 0, 0, 0, 's', 'y', 'n', 'c', 'h', 'r', 'o', 'n', 'o', 'u', 's', 0xe8,
                         0x03, 0, 0, 0, 0,   0,   0,   0,   0,   0,   0,   1,   0,   0,   0,   'x',
                         0,    0, 0, 0, 0,   0,   0,   0,   2,   0,   0,   0,   'a', 'b'};
    EXPECT_EQ(parameters_to_bytes(parameters), expected);
    EXPECT_EQ(parameters_from_bytes(expected), parameters);
    EXPECT_EQ(parameters_to_bytes({}), bytes());
    EXPECT_EQ(parameters_from_bytes({}), routing_parameters());
}

TEST(ParameterBytes, RoundTripNumbersTextsAndOddKeys) {
    const routing_parameters parameters{{"", 0},
                                        {std::string("\0key\0", 5), "text"},
                                        {"smallest", std::numeric_limits<std::int64_t>::min()},
                                        {"minus two", -2},
                                        {"\xff", "last"}};
    const auto written = parameters_to_bytes(parameters);
    EXPECT_EQ(parameters_from_bytes(written), parameters);
    EXPECT_EQ(bytes(written.begin(), written.begin() + 16), bytes(16, 0));
}

TEST(ParameterBytes, RefuseEveryTruncationAndEveryLengthBeyondTheEnd) {
    const auto whole = parameters_to_bytes({{"key", "text"}});
    for (std::size_t size = 1; size < whole.size(); ++size)
        EXPECT_EQ(failure_of({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}),
                  "Invalid binary event routing data");
    bytes huge_key = whole;
    huge_key[3] = 0xff;
    EXPECT_EQ(failure_of(huge_key), "Invalid binary event routing data");
    bytes huge_text = whole;
    huge_text[4 + 3 + 8 + 3] = 0xff;
    EXPECT_EQ(failure_of(huge_text), "Invalid binary event routing data");
}

TEST(ParameterBytes, LetTheLastRecordOfAKeyAndATextWin) {
    auto twice = parameters_to_bytes({{"k", 1}});
    const auto second = parameters_to_bytes({{"k", 2}});
    twice.insert(twice.end(), second.begin(), second.end());
    EXPECT_EQ(parameters_from_bytes(twice), (routing_parameters{{"k", 2}}));

    auto both = parameters_to_bytes({{"k", "text"}});
    both[4 + 1] = 7; // a number beside the text
    EXPECT_EQ(parameters_from_bytes(both), (routing_parameters{{"k", "text"}}));
}

TEST(ParameterBytes, StopAtTheSizeLimit) {
    const routing_parameters parameters{{"k", "text"}};
    EXPECT_EQ(parameters_to_bytes(parameters, 21).size(), 21u);
    EXPECT_THROW(parameters_to_bytes(parameters, 20), std::length_error);
}

TEST(RoutingParameterValue, IsANumberOrAText) {
    routing_parameter_value value("text");
    value = 0; // not taken for a null text
    EXPECT_EQ(value, routing_parameter_value(0));
    value = "text";
    EXPECT_EQ(value, routing_parameter_value("text"));
}

TEST(UniqueName, LeavesNoRoomForAnOverLongBase) {
    EXPECT_EQ(unique_name("ab", 12), "abADD3D808-347A-4DF5-B2E8-C234DA07DCEC-12");
    // The length alone decides, so no such text has to exist.
    const std::string_view too_long("x", 0x7FFFFFFF - 37 + 1);
    try {
        unique_name(too_long, 1);
        FAIL();
    } catch (const std::length_error& failure) {
        EXPECT_STREQ(failure.what(), "string too long");
    }
}

} // namespace
} // namespace zel::event_routing::impl
