#include "framework/text/split_string.h"

#include <gtest/gtest.h>

namespace {

using namespace zel::text;
using pieces = std::vector<std::string>;

TEST(SplitString, KeepsOrDropsEmptyAndRepeatedPiecesAndWhatIsEnclosed) {
    const auto keep = empty_pieces::keep;
    EXPECT_EQ(split_string(".a..b.", ".", keep), (pieces{"", "a", "", "b", ""}));
    EXPECT_EQ(split_string(";a,;b.c,a;", ";,", empty_pieces::drop), (pieces{"a", "b.c", "a"}));
    EXPECT_EQ(split_string("b;a;b;;c;a;;d", ";", keep, repeated_pieces::drop),
              (pieces{"b", "a", "", "c", "d"}));
    EXPECT_EQ(split_string(R"(a,"b,c",d"e,f"g)", ",", keep, repeated_pieces::keep, '"'),
              (pieces{"a", "b,c", "de,fg"}));
}

} // namespace
