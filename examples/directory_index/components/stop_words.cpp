// Answers for words that stand nearly everywhere, before the index is asked.
//
// Its higher priority overrides whoever else answers "index.lookup"; for any other word it
// declines and leaves the question to them.
#include "examples/directory_index/component.h"
#include "examples/directory_index/components/word_table.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"

#include <algorithm>
#include <array>

namespace directory_index {

namespace {

using zel::event_routing::typed_answer;

constexpr std::int32_t before_the_index = 10;
constexpr std::array stop_words = {"an",   "and", "are",  "as", "at",  "be", "by",  "for",
                                   "from", "if",  "in",   "is", "it",  "of", "on",  "or",
                                   "that", "the", "this", "to", "was", "we", "with"};

class stop_word_answers final {
public:
    explicit stop_word_answers(const services& to)
        : cookie_(to.requests->RegisterRequestHandler(paths::index_lookup, before_the_index,
                                                      Lookup::RequestHandler(&answer),
                                                      "stop words")) {}

private:
    static typed_answer<std::vector<word_place>> answer(const std::string& word) {
        if (std::find(stop_words.begin(), stop_words.end(), lower(word)) == stop_words.end())
            return {};
        return {std::nullopt, zel::serialization::make_payload(
                                  explanation{"stands nearly everywhere and is not looked up"})};
    }

    cookie cookie_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::stop_word_answers>(
        directory_index::services::of_this_process());
}
