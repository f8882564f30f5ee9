#include "framework/log/source_position.h"

#include "framework/exceptions/message_of_test.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

std::string identifier(std::string_view path) {
    const auto digits = zel::log::source_position(path, 1).identifier();
    return {digits.data(), digits.size()};
}

TEST(SourcePosition, IsNamedByTheHashOfItsLoweredPath) {
    EXPECT_EQ(identifier("event_routing/platform/src/event.cpp"), "DDFF5BED");
    EXPECT_EQ(identifier("event_routing/Platform/SRC/Event.CPP"), "DDFF5BED");
    EXPECT_EQ(identifier("event_routing/A@Z["), identifier("event_routing/a@z["));
    EXPECT_EQ(identifier("event_routing/"), "D41D8CD9");
    EXPECT_NO_THROW(identifier(__FILE__)) << "as the compiler is told to write it";

    zel::log::source_position elsewhere("/usr/include/string", 1);
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(zel::exceptions::message_of<std::logic_error>([&] { elsewhere.identifier(); }),
                  "The prefixes do not match");
}

} // namespace
