#include "libraries/nats_bridge/owner_claims.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/origin.h"
#include "libraries/nats_bridge/subject.h"

#include <platform/diagnostics.h>

#include <vector>

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position not_owned("event_routing/libraries/nats_bridge/owner_claims.cpp", 1);

// How long an owner may take to refuse. Hosts that give way say nothing about one that owns.
constexpr platform::milliseconds longest_question{2000};
// A host that listens and does not answer may be suspended, and is asked again.
constexpr platform::milliseconds retry{1000};

std::string refusal(const std::string& pattern, const std::string& owner) {
    return "The requests of '" + pattern + "' belong to host '" + host_of(owner) + "' (" + owner +
           ").";
}

} // namespace

owner_claims::owner_claims(const bridge_options& options, const std::string& origin,
                           connection& network, exchange& others, platform::event& changed,
                           serve_pattern serve)
    : options_(options), origin_(origin), network_(network), others_(others), changed_(changed),
      serve_(std::move(serve)) {
    for (const auto& served : options_.serve_requests)
        if (served.mode == request_mode::owner)
            claims_[served.pattern] = {};
}

owner_claims::~owner_claims() {
    end();
}

void owner_claims::begin() {
    for (const auto& served : options_.serve_requests)
        if (served.mode == request_mode::owner)
            network_.subscribe(subject_of_claim(served.pattern),
                               [this, &served](const received_message& message) {
                                   answer(served.pattern, message);
                               });
    if (!are_settled())
        thread_ = std::thread([this] { claim_all(); });
}

void owner_claims::end() {
    {
        platform::scoped_lock inside(guard_);
        is_ending_ = true;
    }
    wake_.set();
    if (thread_.joinable())
        thread_.join();
}

bool owner_claims::are_settled() {
    platform::scoped_lock inside(guard_);
    for (const auto& [pattern, claimed] : claims_)
        if (!claimed.is_settled)
            return false;
    return true;
}

std::string owner_claims::refusals() {
    std::string text;
    platform::scoped_lock inside(guard_);
    for (const auto& [pattern, claimed] : claims_)
        if (claimed.reached == stage::refused)
            text += (text.empty() ? "" : " ") + refusal(pattern, claimed.rival);
    return text;
}

std::string owner_claims::subject_of_claim(const std::string& pattern) const {
    return subject_of(options_.realm, "h", pattern, "owner");
}

void owner_claims::claim_all() {
    std::vector<std::string> wanted;
    for (;;) {
        wanted.clear();
        {
            platform::scoped_lock inside(guard_);
            if (is_ending_)
                return;
            for (const auto& [pattern, claimed] : claims_)
                if (claimed.reached == stage::wanted)
                    wanted.push_back(pattern);
        }
        if (wanted.empty())
            return;
        const auto failure = platform::guarded([&] {
            std::erase_if(wanted, [this](const auto& pattern) { return try_claim(pattern); });
        });
        if (failure)
            bridge_log.report(log::severity::failed_operation, not_owned, failure,
                              [] { return "Claiming requests failed, and is tried again."; });
        if (!wanted.empty())
            wake_.wait(retry);
    }
}

// False when nobody can tell for now.
bool owner_claims::try_claim(const std::string& pattern) {
    std::vector<byte_vector> answers;
    const auto refuses = [](std::span<const std::uint8_t> answer) {
        return read_envelope<claim_envelope>(answer).gives_way == 0;
    };
    const auto outcome =
        others_.ask_all(subject_of_claim(pattern), envelope_bytes(claim_envelope{origin_, 0}),
                        steady_clock::now() + longest_question, refuses, answers);
    const bool all_give_way = outcome == asking::late && !answers.empty();
    if (outcome != asking::nobody && outcome != asking::answered && !all_give_way)
        return false;
    if (outcome == asking::answered)
        settle(pattern, read_envelope<claim_envelope>(answers.back()).origin);
    const std::string owner = settle(pattern, "");
    if (owner.empty())
        serve_(pattern);
    else
        bridge_log.announce(log::severity::failed_operation, not_owned,
                            [&] { return refusal(pattern, owner); });
    {
        platform::scoped_lock inside(guard_);
        claims_.at(pattern).is_settled = true;
    }
    changed_.set();
    return true;
}

// The rival that has it, empty if this host does.
std::string owner_claims::settle(const std::string& pattern, const std::string& rival) {
    platform::scoped_lock inside(guard_);
    claim& own = claims_.at(pattern);
    if (own.rival.empty())
        own.rival = rival;
    own.reached = own.rival.empty() ? stage::owned : stage::refused;
    return own.rival;
}

void owner_claims::answer(const std::string& pattern, const received_message& message) {
    const auto asking = read_envelope<claim_envelope>(message.bytes);
    claim_envelope answer{origin_, 1};
    {
        platform::scoped_lock inside(guard_);
        claim& own = claims_.at(pattern);
        if (own.reached == stage::wanted && asking.origin < origin_)
            own.rival = asking.origin;
        else if (own.reached != stage::refused)
            answer.gives_way = 0;
    }
    network_.publish(std::string(message.answer_to), envelope_bytes(answer));
}

} // namespace zel::event_routing::nats
