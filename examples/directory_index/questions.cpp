#include "examples/directory_index/questions.h"

#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"
#include "examples/directory_index/report_text.h"
#include "framework/serialization/json_text.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/typed.h>

#include <fmt/format.h>

namespace directory_index {

namespace {

constexpr std::size_t most_shown = 20;

std::string text_of(const std::string& word, const std::vector<word_place>& places) {
    std::int64_t sum = 0;
    for (const auto& place : places)
        sum += place.count;
    const auto files = static_cast<std::int64_t>(places.size());
    std::string text = fmt::format("{}: {} in {}\n", printable(word), counted(sum, "time"),
                                   counted(files, "file"));
    for (std::size_t i = 0; i < places.size() && i < most_shown; ++i)
        text += fmt::format("{:>12}  {}\n", grouped(places[i].count), printable(places[i].path));
    if (places.size() > most_shown)
        text += fmt::format("{:>12}  {}\n", "",
                            counted(files - static_cast<std::int64_t>(most_shown), "further file"));
    return text;
}

// A word that no file has is declined by the index, and by whoever else is asked for it.
const char* reason_of(const zel::event_routing::request_was_not_processed& nobody,
                      bool is_question) {
    if (nobody.declined().empty())
        return "nobody answers questions";
    return is_question ? "nobody knows the answer" : "no text file has this word";
}

bool ask(zel::event_routing::IRequestRouting& requests, const std::string& word,
         const printer& show) {
    const bool is_question = word.starts_with(paths::index_questions);
    routing_parameters parameters;
    parameters[parameter::word] = word;
    try {
        const auto answer =
            Lookup::Ask(requests, is_question ? word : paths::index_lookup, word, parameters);
        if (answer) {
            show(text_of(word, *answer.value));
            return true;
        }
        explanation scratch;
        const auto* const why =
            zel::serialization::GetDataValue<explanation>(answer.error, scratch);
        complain(fmt::format("'{}': {}", printable(word), why ? printable(why->text) : "failed"));
    } catch (const zel::event_routing::request_was_not_processed& nobody) {
        complain(fmt::format("'{}': {}", printable(word), reason_of(nobody, is_question)));
    }
    return false;
}

} // namespace

bool ask(zel::event_routing::IRequestRouting& requests, const std::vector<std::string>& words,
         const printer& show) {
    bool all_answered = true;
    for (const auto& word : words)
        all_answered = ask(requests, word, show) && all_answered;
    return all_answered;
}

std::string handlers_as_json(zel::event_routing::IRequestRouting& requests) {
    using namespace zel::event_routing;
    using Enumerate = Request<std::vector<enumerate_handlers::handler_list_2>>;
    const std::string path = "event_routing.enumerate_handlers2";
    const auto answer = Enumerate::Ask(requests, path);
    if (!answer)
        throw zel::exceptions::error("The request '" + path + "' was answered with an error.");
    return zel::serialization::json_to_text(zel::serialization::ToJson(*answer.value)) + "\n";
}

} // namespace directory_index
