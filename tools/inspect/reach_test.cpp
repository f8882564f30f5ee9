// What is told of a path must be what routing does with it.
#include "tools/inspect/reach.h"

#include <event_routing/client.h>

#include <algorithm>
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
        std::string made = any_of("ab");
        while (any_of("..|") == ".")
            made += any_of("ab.") == "." ? "." : "." + any_of("ab");
        return made;
    }
    std::string registration() {
        const std::string form = any_of("=<<*");
        return form == "*" ? form : form == "<" ? path() + ".*" : path();
    }
    std::string paths() {
        std::string made = path();
        while (any_of(";|") == ";")
            made += ";" + path();
        return made;
    }

private:
    std::string any_of(std::string_view letters) { return {letters[random_() % letters.size()]}; }

    std::mt19937 random_{20};
};

TEST(ReachedHandlers, AreThoseThatRoutingCallsInThatOrder) {
    const auto module = get_module();
    const auto events = get_event_routing(*module);
    const auto requests = get_request_routing(*module);
    const auto snowballs = get_snowball_routing(*module);
    routed_paths make;
    // Level, description and the path as the handler was given it.
    std::vector<std::tuple<std::ptrdiff_t, std::string, std::string>> called;
    std::vector<std::shared_ptr<zel::tasklib::keep_registered>> cookies;
    for (int number = 0; number < 60; ++number) {
        const std::string registration = make.registration(), name = std::to_string(number);
        const auto level =
            std::ranges::count(registration, '.') + (registration.ends_with('*') ? 0 : 1);
        const auto note = [=, &called](const std::string& path, auto&&...) {
            called.emplace_back(level, name, path);
            return false;
        };
        cookies.push_back(events->RegisterEventHandler(nullptr, registration, note, nullptr, name));
        cookies.push_back(requests->RegisterRequestHandler(registration, 0, note, name));
        cookies.push_back(snowballs->RegisterSnowballHandler(registration, note, name));
    }
    called.clear(); // of events that tell of a registration
    const auto expect_called = [&](handler_type type, const handler_texts& handlers,
                                   const std::string& path) {
        decltype(called) told;
        for (const auto& reached : reached_handlers({type, {}, handlers}, path))
            told.emplace_back(reached.level, reached.description, reached.routed);
        EXPECT_EQ(told, called) << path;
        return std::exchange(called, {}).size();
    };
    std::size_t reached = 0;
    for (int round = 0; round < 300; ++round) {
        const std::string path = make.path(), paths = make.paths();
        events->BroadcastEvent(paths, nullptr, {}, nullptr);
        reached += expect_called(handler_type::event, events->GetEventHandlers(), paths);
        request_answer response, error_response;
        requests->SendRequest(path, nullptr, response, error_response,
                              {{parameter::suppress_not_processed_exception, {}}});
        expect_called(handler_type::request, requests->GetRequestHandlers(), path);
        snowballs->SendSnowball(path, nullptr, response, error_response, {});
        expect_called(handler_type::snowball, snowballs->GetSnowballHandlers(), path);
    }
    EXPECT_GT(reached, 1000u) << "paths that reach next to nothing prove nothing";
}

} // namespace
} // namespace inspect
