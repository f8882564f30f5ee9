#include <event_routing/client.h>
#include <event_routing/typed.h>
#include <iostream>

using namespace zel::event_routing;

using Translate = Request<std::string, std::string>; // a word in, a word out

int main() {
    const auto requests = get_request_routing(*get_module());
    const auto dictionary = requests->RegisterRequestHandler(
        "translate.german", 0,
        Translate::RequestHandler([](const std::string& word) -> std::optional<std::string> {
            if (word == "tree")
                return "Baum";
            return std::nullopt; // somebody else may know
        }),
        "small dictionary");
    const auto guess = requests->RegisterRequestFallbackHandler(
        "translate.*",
        Translate::RequestHandler([](const std::string& word) { return word + "?"; }), "guess");
    for (const std::string word : {"tree", "forest"})
        std::cout << *Translate::Ask(*requests, "translate.german", word).value << '\n';
    try {
        Translate::Ask(*requests, "translate.german", "forest",
                       {{parameter::skip_request_fallbacks, 1}});
    } catch (const request_was_not_processed& nobody) {
        for (const auto& handler : nobody.declined())
            std::cout << handler.description << " has no answer\n";
    }
}
