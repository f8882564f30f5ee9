// How a component adds its section to the report.
#pragma once

#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"

#include <string>
#include <utility>

namespace directory_index {

/// `make_text` gives the section's text, in whole lines; an empty one is left out. Sections
/// stand in the order in which their components were made.
template <class MakeText>
cookie register_section(const services& to, std::string component, MakeText make_text) {
    return to.snowballs->RegisterSnowballHandler(
        paths::report_build,
        Report::SnowballHandler([component, make_text](auto& sections, const auto&) {
            if (std::string text = make_text(); !text.empty())
                sections.push_back({component, std::move(text)});
        }),
        component);
}

} // namespace directory_index
