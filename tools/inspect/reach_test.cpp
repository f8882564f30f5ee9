// What is told of a path must be what routing does with it.
#include "tools/inspect/reach.h"

#include "tools/inspect/outline.h"

#include <event_routing/client.h>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <random>
#include <utility>

namespace inspect {
namespace {

using namespace zel::event_routing;

class routed_paths {
public:
    // Empty subnodes too, but not at the beginning, where a list does not show them.
    std::string path() {
        std::string made = pick({"a", "b"});
        while (pick({"on", "on", "end"}) == "on")
            made += "." + pick({"a", "b", ""});
        return made;
    }
    std::string registration() {
        const std::string form = pick({"exact", "below", "below", "all"});
        return form == "all" ? "*" : form == "below" ? path() + ".*" : path();
    }
    std::string paths() {
        std::string made = path();
        while (pick({"one", "more"}) == "more")
            made += ";" + path();
        return made;
    }

private:
    std::string pick(std::vector<std::string> from) {
        return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(random_)];
    }
    std::mt19937 random_{20};
};

// Level, description and the path as the handler was given it.
using calls = std::vector<std::tuple<std::size_t, std::string, std::string>>;

calls told(handler_type type, const handler_texts& handlers, const std::string& path) {
    calls all;
    for (const auto& reached : reached_handlers({type, {}, handlers}, path))
        all.emplace_back(reached.level, reached.description, reached.routed);
    return all;
}

TEST(ReachedHandlers, AreThoseThatRoutingCallsInThatOrder) {
    const auto module = get_module();
    const auto events = get_event_routing(*module);
    const auto requests = get_request_routing(*module);
    const auto snowballs = get_snowball_routing(*module);
    routed_paths make;
    calls called;
    std::vector<std::shared_ptr<zel::tasklib::keep_registered>> cookies;
    for (int number = 0; number < 60; ++number) {
        const std::string name = std::to_string(number);
        const auto note = [&called, name](const std::string& path, auto&&...) {
            called.emplace_back(0, name, path);
            return false;
        };
        const std::string registration = make.registration();
        cookies.push_back(events->RegisterEventHandler(nullptr, registration, note, nullptr, name));
        cookies.push_back(requests->RegisterRequestHandler(registration, 0, note, name));
        cookies.push_back(snowballs->RegisterSnowballHandler(registration, note, name));
    }
    called.clear(); // of events that tell of a registration
    const auto with_levels = [&](const auto& infos) {
        for (std::size_t i = 0; i < called.size(); ++i)
            std::get<0>(called[i]) = static_cast<std::size_t>(infos.at(i).first);
        return std::exchange(called, {});
    };
    std::vector<std::pair<std::int32_t, std::string>> levels;
    cookies.push_back(events->RegisterMonitorHandler(
        [&](const auto&, const auto&, const auto&, const monitor::event_handling_info_2& info) {
            if (!info.handler_info)
                levels = info.handlers_info;
        }));
    const auto keep_levels = [&](const std::vector<monitor::handler_record>& records) {
        levels.clear();
        for (const auto& record : records)
            levels.emplace_back(record.level, record.description);
    };
    cookies.push_back(requests->RegisterMonitorHandler(
        [&](const auto&, const auto&, const auto&, const auto&, const auto&,
            const monitor::request_handling_info_3& info,
            const auto&) { keep_levels(info.declined_handlers); }));
    cookies.push_back(snowballs->RegisterMonitorHandler(
        [&](const auto&, const auto&, const auto&, const auto&, const auto&,
            const monitor::snowball_handling_info_3& info,
            const auto&) { keep_levels(info.called_handlers); }));

    std::size_t reached = 0;
    for (int round = 0; round < 300; ++round) {
        const std::string path = make.path(), paths = make.paths();
        events->BroadcastEvent(paths, nullptr, {}, nullptr);
        const calls of_event = with_levels(levels);
        EXPECT_EQ(told(handler_type::event, events->GetEventHandlers(), paths), of_event) << paths;
        request_answer response, error_response;
        requests->SendRequest(path, nullptr, response, error_response,
                              {{"supress_not_processed_exception", {}}});
        EXPECT_EQ(told(handler_type::request, requests->GetRequestHandlers(), path),
                  with_levels(levels))
            << path;
        snowballs->SendSnowball(path, nullptr, response, error_response, {});
        EXPECT_EQ(told(handler_type::snowball, snowballs->GetSnowballHandlers(), path),
                  with_levels(levels))
            << path;
        reached += of_event.size();
    }
    EXPECT_GT(reached, 1000u) << "paths that reach next to nothing prove nothing";
}

TEST(Outline, HasOneRowForEachSubnodeThatPathsShare) {
    std::string shown;
    for (const row& r : outline(
             {{"", "none"}, {"a", "1"}, {"a", "2"}, {"a.b..c", "3"}, {"a.bc", "4"}, {"*", "5"}}))
        shown += fmt::format("{}{}{}{} ", r.depth, r.is_handler ? "=" : "/", r.text,
                             r.is_last ? "." : "");
    EXPECT_EQ(shown, "0/ 1=none. 0/a 1=1 1=2 1/b 2/. 3/c. 4=3. 1/bc. 2=4. 0/*. 1=5. ");
}

} // namespace
} // namespace inspect
