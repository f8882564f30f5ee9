#include "framework/event_routing/src/event_routing/routing/routing_map.h"

#include "framework/serialization/payload_test.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

struct nothing {};
using node = RoutingMapNode<int, nothing>;
using listing = std::vector<std::pair<std::string, std::string>>;

class RoutingMap : public testing::Test {
protected:
    // The description tells the handlers apart.
    node::registration add(const std::string& path, const std::string& description) {
        return map.InsertHandler(registration_path(path), node::make_item(0, {}, description));
    }
    node::registration add(const std::string& path) { return add(path, path); }

    std::string matches(const std::string& path) const {
        node::collected_handlers found;
        map.CollectHandlers(path, found);
        std::string text;
        for (const auto& [handler, level] : found)
            text += (text.empty() ? "" : " ") + handler->description + ":" + std::to_string(level);
        return text;
    }

    node map;
};

TEST_F(RoutingMap, MatchesFromTheMostSpecificRegistrationToTheRoot) {
    for (const char* path : {"*", "a.*", "a.b", "a.b.*", "", ".*"})
        add(path);
    add("a.*", "second");
    const std::pair<const char*, const char*> cases[] = {
        {"a.b", "a.b:2 a.*:1 second:1 *:0"},
        {"a.b.d", "a.b.*:2 a.*:1 second:1 *:0"},
        {"a", "*:0"},                   // a wildcard does not match its own node
        {"A.b", "*:0"},                 // comparison is case-sensitive
        {"a.*", "a.*:1 second:1 *:0"},  // a routed asterisk is an ordinary name
        {"a..b", "a.*:1 second:1 *:0"}, // empty subnodes are subnodes
        {"a.b.", "a.b.*:2 a.*:1 second:1 *:0"},
        {".a.b", ".*:1 *:0"},
        {".", ".*:1 *:0"},
        {"", ":1 *:0"}};
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(matches(path), expected) << path;
}

TEST_F(RoutingMap, RefusesAnAsteriskAnywhereButAsTheLastSubnode) {
    for (const char* const path : {"a.*.", "a*", "a.b*", "*.a", "a.*.b", "**", "a.**", "*.*"})
        EXPECT_EQ(serialization::failure_of([&] { add(path); }),
                  "Wildcards are not supported except '*' as a last subnode.");
    EXPECT_THROW(add("a*"), exceptions::error);
}

TEST_F(RoutingMap, ListsNodesInByteOrderOwnHandlersFirst) {
    for (const char* path : {"a.c", "a", "a.*", "B", "*", "\xC3\xA4"})
        add(path);
    add(".a", "hidden prefix");
    EXPECT_EQ(map.CollectAllHandlers(), (listing{{"*", "*"},
                                                 {"a", "hidden prefix"},
                                                 {"B", "B"},
                                                 {"a", "a"},
                                                 {"a.*", "a.*"},
                                                 {"a.c", "a.c"},
                                                 {"\xC3\xA4", "\xC3\xA4"}}));
}

TEST_F(RoutingMap, KeepsOrderAndNodesWhenHandlersGo) {
    add("a", "1");
    const auto second = add("a", "2");
    add("a", "3");
    const auto deep = add("a.b.d", "deep");
    node::RemoveHandler(second);
    EXPECT_EQ(node::RemoveHandler(deep).record->description, "deep");
    EXPECT_EQ(matches("a"), "1:1 3:1");
    EXPECT_EQ(map.CollectAllHandlers(), (listing{{"a", "1"}, {"a", "3"}}));
    add("a.b.d", "again");
    EXPECT_EQ(matches("a.b.d"), "again:3");
}

TEST_F(RoutingMap, HandlesManyChildrenAndVeryDeepPaths) {
    for (int i = 0; i < 1000; ++i)
        add("n.c" + std::to_string(i));
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(matches("n.c" + std::to_string(i)), "n.c" + std::to_string(i) + ":2");

    std::string deep(300'000, '.'); // a stack frame per subnode would overflow
    add(deep, "deep");
    EXPECT_EQ(matches(deep), "deep:300001");
    EXPECT_EQ(map.CollectAllHandlers().size(), 1001u);
}

} // namespace
} // namespace zel::event_routing::impl
