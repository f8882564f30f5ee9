#include "framework/serialization/payload_test.h"

namespace zel::serialization {
namespace {

template <class T>
byte_vector bytes_of(const T& value) {
    out_blob_stream out;
    Serialize(out, value);
    return out.take();
}

template <class T>
T value_of(const byte_vector& bytes) {
    in_blob_ref_stream in(bytes);
    T value{};
    Deserialize(in, value);
    return value;
}

template <class T>
std::string failure_of_reading(const byte_vector& bytes) {
    return failure_of([&] { value_of<T>(bytes); });
}

const std::string missing = "zel::serialization::in_blob_stream_base::get_impl: Missing data";

TEST(BinaryForm, IsLittleEndianWithoutGaps) {
    sample value = filled_sample();
    value.named.clear();
    value.inside.clear();
    const byte_vector expected = {1,                                              // flag
                                  0xFE,                                           // tiny
                                  0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, // large
                                  0,    0,    0xC0, 0x3F,                         // ratio
                                  7,    0,    0,    0,                            // where
                                  3,    0,    0,    0,    'a',  0xC3, 0xA9,       // text
                                  1,    0xFD, 0xFF,                               // maybe
                                  4,    5,                                        // two
                                  1,    0,    0,    0,    1,    0,    0,    0,
                                  'k',  6,    0,    0,    0,                    // sorted
                                  2,    0,    0,    0,    1,    0,              // bits
                                  0,    0,    0,    0,    0,    0,    0,    0}; // named, inside
    EXPECT_EQ(bytes_of(value), expected);
    EXPECT_EQ(bytes_of(std::tuple<>()), byte_vector());
    EXPECT_EQ(bytes_of(std::pair(std::int16_t{1}, std::vector<std::int16_t>{2, -1})),
              byte_vector({1, 0, 2, 0, 0, 0, 2, 0, 0xFF, 0xFF}));
}

TEST(BinaryForm, GathersWritesOfAnySize) {
    for (const std::size_t size : {0, 1, 251, 252, 253, 256, 257, 1000}) {
        const std::vector<std::string> texts = {"a", std::string(size, 'x'), "b"};
        EXPECT_EQ(value_of<std::vector<std::string>>(bytes_of(texts)), texts);
    }
    out_blob_stream small(10);
    small.write("12345678", 8);
    EXPECT_NO_THROW(Serialize(small, std::int16_t{1}));
    EXPECT_EQ(failure_of([&] {
                  small.write("1", 1);
                  small.take();
              }),
              "vector too long");
}

TEST(BinaryForm, NamesWhatIsWrongWithBytes) {
    EXPECT_EQ(failure_of_reading<std::string>({5, 0, 0, 0}),
              "zel::serialization::Deserialize: Invalid string size: 5");
    EXPECT_EQ(failure_of_reading<std::string>({5, 0, 0, 0, 'a'}), missing);
    EXPECT_EQ(failure_of_reading<std::vector<std::string>>({255, 255, 255, 255}),
              "zel::serialization::DeserializeSeqContainer: Invalid container size: 4294967295");
    EXPECT_EQ(failure_of_reading<std::vector<std::uint64_t>>({4, 0, 0, 0}), missing);
    EXPECT_EQ(failure_of_reading<std::vector<std::vector<std::tuple<>>>>(
                  {2, 0, 0, 0, 12, 0, 0, 0, 12, 0, 0, 0}),
              "zel::serialization::DeserializeSeqContainer: Invalid container size: 12")
        << "elements without bytes";
    EXPECT_EQ(failure_of_reading<bool>({2}), "zel::serialization::Deserialize: Invalid flag: 2");
    EXPECT_EQ(value_of<side>({9, 0, 0, 0}), side(9)) << "named or not";
    using numbers = std::map<std::string, std::uint8_t>;
    EXPECT_EQ(value_of<numbers>({2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2}), numbers({{"", 2}}))
        << "the last of equal keys";
}

// Each level of "inside" takes a few bytes, so a short input could ask for any depth.
TEST(BinaryForm, GoesNoDeeperThanItsLimitInEitherDirection) {
    const byte_vector deepest = bytes_of(chain_of(deepest_nesting));
    EXPECT_EQ(bytes_of(value_of<sample>(deepest)), deepest);
    EXPECT_EQ(failure_of([] { bytes_of(chain_of(deepest_nesting + 1)); }), too_deep);

    const byte_vector one = bytes_of(sample());
    byte_vector hostile;
    for (int level = 0; level < 100000; ++level) {
        hostile.insert(hostile.end(), one.begin(), one.end() - 4); // but for the last count
        hostile.insert(hostile.end(), {1, 0, 0, 0});
    }
    EXPECT_EQ(failure_of_reading<sample>(hostile), too_deep);
}

} // namespace
} // namespace zel::serialization
