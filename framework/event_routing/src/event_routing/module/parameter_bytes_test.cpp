#include "framework/event_routing/src/event_routing/module/parameter_bytes.h"

#include "framework/event_routing/src/event_routing/module/module_reference.h"
#include "framework/serialization/payload_test.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

using bytes = std::vector<std::uint8_t>;

TEST(ParameterBytes, HaveTheDocumentedLayout) {
    const routing_parameters parameters{{"x", "ab"}, {"synchronous", 1000}};
    const bytes expected{0x0b, 0, 0, 0, 's', 'y', 'n', 'c', 'h', 'r', 'o', 'n', 'o', 'u', 's', 0xe8,
                         0x03, 0, 0, 0, 0,   0,   0,   0,   0,   0,   0,   1,   0,   0,   0,   'x',
                         0,    0, 0, 0, 0,   0,   0,   0,   2,   0,   0,   0,   'a', 'b'};
    EXPECT_EQ(parameters_to_bytes(parameters), expected);
    EXPECT_EQ(parameters_from_bytes(expected), parameters);
    EXPECT_EQ(parameters_to_bytes({}), bytes());

    const routing_parameters odd{{"", 0},
                                 {std::string("\0key\0", 5), "text"},
                                 {"smallest", std::numeric_limits<std::int64_t>::min()},
                                 {"\xff", "last"}};
    EXPECT_EQ(parameters_from_bytes(parameters_to_bytes(odd)), odd);
}

TEST(ParameterBytes, RefuseEveryTruncationAndEveryLengthBeyondTheEnd) {
    const auto whole = parameters_to_bytes({{"key", "text"}});
    std::vector<bytes> malformed(2, whole);
    malformed[0][3] = 0xff;             // length of the key
    malformed[1][4 + 3 + 8 + 3] = 0xff; // length of the text
    for (std::size_t size = 1; size < whole.size(); ++size)
        malformed.emplace_back(whole.data(), whole.data() + size);
    for (const auto& data : malformed)
        EXPECT_EQ(serialization::failure_of([&] { parameters_from_bytes(data); }),
                  "Invalid binary event routing data");
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
    routing_parameter_value value("text");
    value = 0; // a number, not a null text
    EXPECT_EQ(parameters_to_bytes({{"k", value}}, 17).size(), 17u);
    EXPECT_THROW(parameters_to_bytes({{"k", value}}, 16), std::length_error);
}

TEST(UniqueName, LeavesNoRoomForAnOverLongBase) {
    // The length alone decides, so no such text has to exist.
    const std::string_view too_long("x", 0x7FFFFFFF - 37 - 1);
    EXPECT_THROW(unique_name(too_long, 10), std::length_error);
}

} // namespace
} // namespace zel::event_routing::impl
