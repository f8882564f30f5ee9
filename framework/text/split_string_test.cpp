#include "framework/text/split_string.h"

#include "framework/exceptions/message_of_test.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace zel::text;
using pieces = std::vector<std::string>;

TEST(SplitString, KeepsOrDropsEmptyAndRepeatedPieces) {
    const auto all = [](auto text) { return split_string(text, ".", empty_pieces::keep); };
    EXPECT_EQ(all("a..b"), (pieces{"a", "", "b"}));
    EXPECT_EQ(all(".a."), (pieces{"", "a", ""}));
    EXPECT_EQ(all("."), (pieces{"", ""}));
    EXPECT_EQ(all(""), pieces{""});
    const auto full = [](auto text) { return split_string(text, ";,", empty_pieces::drop); };
    EXPECT_EQ(full(";a,;b.c,a;"), (pieces{"a", "b.c", "a"}));
    EXPECT_EQ(full(";,"), pieces{});
    EXPECT_EQ(full(""), pieces{});
    const auto once = [](auto text) {
        return split_string(text, ";", empty_pieces::keep, repeated_pieces::drop);
    };
    EXPECT_EQ(once("b;a;b;;c;a;;d;b"), (pieces{"b", "a", "", "c", "d"}));
}

TEST(SplitString, TakesDelimitersBetweenEncloseCharactersAsText) {
    const auto enclosed = [](auto text, char enclose = '"') {
        return split_string(text, ",", empty_pieces::keep, repeated_pieces::keep, enclose);
    };
    EXPECT_EQ(enclosed(R"(a,"b,c",d"e,f"g)"), (pieces{"a", "b,c", "de,fg"}));
    EXPECT_EQ(enclosed(R"("",")"), (pieces{"", ""}));
    EXPECT_EQ(zel::exceptions::message_of<std::invalid_argument>([&] { enclosed("", ','); }),
              "enclose char presented in delimiters");
}

} // namespace
