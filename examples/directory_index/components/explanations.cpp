// Explains questions that nobody ever answers.
//
// A fallback is asked when all others have declined. A question that somebody is registered
// for it declines, too: then the answer is not known, but the question is a good one.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"

#include <algorithm>

namespace directory_index {

namespace {

using zel::event_routing::IRequestRouting;
using zel::event_routing::request_answer;
using zel::event_routing::request_data;

class explanations final {
public:
    explicit explanations(const services& to)
        : requests_(*to.requests),
          cookie_(to.requests->RegisterRequestFallbackHandler(
              paths::any_index_question,
              [this](const std::string& path, const request_data&, request_answer&,
                     request_answer& error_response,
                     const routing_parameters&) { return explain(path, error_response); },
              "explanations")) {
        zel::serialization::register_data_type<explanation>();
    }

private:
    bool explain(const std::string& path, request_answer& error_response) const {
        std::vector<std::string> known;
        for (const auto& [question, description] : requests_.GetRequestHandlers())
            if (question.starts_with(paths::index_questions) &&
                std::find(known.begin(), known.end(), question) == known.end())
                known.push_back(question);
        if (std::find(known.begin(), known.end(), path) != known.end())
            return false;
        std::string text = "nobody answers this question; there is";
        for (const auto& question : known)
            text += (question == known.front() ? " " : ", ") + question;
        if (known.empty())
            text += " none";
        error_response = zel::serialization::make_payload(explanation{text});
        return true;
    }

    IRequestRouting& requests_;
    cookie cookie_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::explanations>(
        directory_index::services::of_this_process());
}
