// The payloads of the questions and of the report; everything else travels as parameters.
#pragma once

#include <event_routing/typed.h>

#include <cstdint>
#include <string>
#include <vector>

namespace directory_index {

/// How often a word stands in a file.
struct word_place {
    std::string path;
    std::int64_t count = 0;
};

/// Why a question has no answer, for the user.
struct explanation {
    std::string text;
};

/// What one component has found out, in whole lines.
struct report_section {
    std::string component;
    std::string text;

    bool operator==(const report_section&) const = default;
};

/// A word goes in; the files with it come out, those first in which it is most frequent.
using Lookup = zel::event_routing::Request<std::vector<word_place>, std::string>;

/// Each component adds a section, unless it has nothing to say.
using Report = zel::event_routing::Snowball<std::vector<report_section>>;

} // namespace directory_index

template <>
struct zel::serialization::record<directory_index::word_place> {
    using type = directory_index::word_place;
    static constexpr std::string_view name = "struct directory_index::word_place";
    static constexpr std::tuple fields{field("path", &type::path), field("count", &type::count)};
};

template <>
struct zel::serialization::record<directory_index::explanation> {
    using type = directory_index::explanation;
    static constexpr std::string_view name = "struct directory_index::explanation";
    static constexpr std::tuple fields{field("text", &type::text)};
};

template <>
struct zel::serialization::record<directory_index::report_section> {
    using type = directory_index::report_section;
    static constexpr std::string_view name = "struct directory_index::report_section";
    static constexpr std::tuple fields{field("component", &type::component),
                                       field("text", &type::text)};
};
