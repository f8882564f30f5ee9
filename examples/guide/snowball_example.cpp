#include <event_routing/client.h>
#include <event_routing/typed.h>
#include <iostream>

using namespace zel::event_routing;

using Menu = Snowball<std::vector<std::string>>; // its entries

int main() {
    const auto snowballs = get_snowball_routing(*get_module());
    const auto print = snowballs->RegisterSnowballHandler(
        "menu.build.*",
        Menu::SnowballHandler([](auto& entries, auto&) { entries.push_back("Print"); }),
        "printing");
    const auto open = snowballs->RegisterSnowballHandler(
        "menu.build.file",
        Menu::SnowballHandler([](auto& entries, auto&) { entries.push_back("Open"); }),
        "documents");
    // The most specific registration comes first, whoever registered first.
    for (const auto& entry : Menu::Send(*snowballs, "menu.build.file", {}, {"New"}))
        std::cout << entry << '\n';
}
