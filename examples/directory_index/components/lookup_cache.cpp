// Remembers the answers to "index.lookup" until the index changes.
//
// A redirection is asked before all others. What it does not know it asks for itself, in a
// request that it declines to answer, and keeps what comes back.
#include "examples/directory_index/component.h"
#include "examples/directory_index/paths.h"
#include "examples/directory_index/payloads.h"

#include <platform/critical_section.h>

#include <cstdint>
#include <unordered_map>

namespace directory_index {

namespace {

using zel::event_routing::IRequestRouting;
using zel::event_routing::request_answer;
using zel::event_routing::request_data;

constexpr std::size_t most_answers = 10'000;
const std::string own_question = "lookup_cache.own_question"; // a parameter

class lookup_cache final {
public:
    explicit lookup_cache(const services& to) : requests_(*to.requests) {
        cookies_.push_back(to.events->RegisterEventHandler(
            nullptr, paths::index_changed,
            [this](auto&&...) {
                forget();
                return true;
            },
            nullptr, "lookup cache: index has changed"));
        cookies_.push_back(to.requests->RegisterRequestRedirectionHandler(
            paths::index_lookup,
            [this](const std::string&, const request_data& data, request_answer& response,
                   request_answer& error_response, const routing_parameters& about) {
                return answer(data, response, error_response, about);
            },
            "lookup cache"));
    }

private:
    bool answer(const request_data& data, request_answer& response, request_answer& error_response,
                const routing_parameters& about) {
        Lookup::input_data scratch;
        const auto* const question = zel::serialization::GetDataValue(data, scratch);
        if (!question || about.contains(own_question))
            return false;
        const std::string& word = std::get<0>(*question);
        std::uint64_t asked_in = 0;
        if (recall(word, response, asked_in))
            return true;

        auto parameters = about;
        parameters[own_question] = 1;
        // Where nobody answers, the sender is told of that rather than of this question.
        parameters[zel::event_routing::parameter::suppress_not_processed_exception] = 1;
        if (!requests_.SendRequest(paths::index_lookup, data, response, error_response, parameters))
            return false;
        if (!error_response)
            remember(word, response, asked_in);
        return true;
    }

    bool recall(const std::string& word, request_answer& response, std::uint64_t& generation) {
        zel::platform::scoped_lock inside(guard_);
        generation = generation_;
        const auto known = answers_.find(word);
        if (known == answers_.end())
            return false;
        response = known->second; // nobody changes an answer that was handed on
        return true;
    }

    void remember(const std::string& word, const request_answer& response, std::uint64_t asked_in) {
        zel::platform::scoped_lock inside(guard_);
        if (asked_in != generation_)
            return; // the index has changed meanwhile
        if (answers_.size() >= most_answers)
            answers_.clear();
        answers_[word] = response;
    }

    void forget() {
        zel::platform::scoped_lock inside(guard_);
        ++generation_;
        answers_.clear();
    }

    IRequestRouting& requests_;
    // The index changes on threads of the task library.
    zel::platform::critical_section guard_;
    std::uint64_t generation_ ZEL_GUARDED_BY(guard_) = 0;
    std::unordered_map<std::string, request_answer> answers_ ZEL_GUARDED_BY(guard_);
    cookies cookies_;
};

} // namespace

} // namespace directory_index

void start_event_routing_component(std::shared_ptr<void>& made) {
    made = std::make_shared<directory_index::lookup_cache>(
        directory_index::services::of_this_process());
}
