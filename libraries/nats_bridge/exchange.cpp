#include "libraries/nats_bridge/exchange.h"

#include <platform/announced_wait.h>
#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

platform::milliseconds left_until(steady_clock::time_point end) {
    const auto left = std::chrono::ceil<platform::milliseconds>(end - steady_clock::now());
    return std::max(left, platform::milliseconds(0));
}

} // namespace

exchange::exchange(const std::string& inbox, connection& network, counters& counts)
    : inbox_(inbox), network_(network), counts_(counts) {}

void exchange::begin() {
    network_.subscribe(inbox_ + ".*", [this](const received_message& message) { take(message); });
}

void exchange::connection_went() {
    fail_waiting(false);
}

void exchange::end() {
    fail_waiting(true);
}

void exchange::fail_waiting(bool for_good) {
    platform::scoped_lock inside(guard_);
    has_ended_ = has_ended_ || for_good;
    for (const auto& [subject, waiting] : waiting_) {
        if (waiting->state == asking::late)
            waiting->state = asking::disconnected;
        waiting->changed.set();
    }
}

void exchange::take(const received_message& message) {
    platform::scoped_lock inside(guard_);
    const auto found = waiting_.find(std::string(message.subject));
    if (found == waiting_.end())
        return counters::add(counts_.late_answers);
    question& waiting = *found->second;
    if (waiting.state != asking::late)
        return counters::add(counts_.late_answers);
    if (message.nobody) {
        waiting.state = asking::nobody;
    } else {
        const bool is_last = waiting.decides(message.bytes);
        waiting.answers.emplace_back(message.bytes.begin(), message.bytes.end());
        if (is_last)
            waiting.state = asking::answered;
    }
    waiting.changed.set();
}

asking exchange::ask(const std::string& subject, std::string_view question_bytes,
                     steady_clock::time_point deadline, byte_vector& answer) {
    std::vector<byte_vector> answers;
    const answer_test any = [](auto&&) { return true; };
    const asking result = ask_all(subject, question_bytes, deadline, any, answers);
    if (result == asking::answered)
        answer = std::move(answers.front());
    return result;
}

asking exchange::ask_all(const std::string& subject, std::string_view question_bytes,
                         steady_clock::time_point deadline, const answer_test& decides,
                         std::vector<byte_vector>& answers) {
    question own{decides};
    std::string answer_to;
    {
        platform::scoped_lock inside(guard_);
        if (has_ended_)
            return asking::not_connected;
        answer_to = inbox_ + '.' + std::to_string(++asked_);
        waiting_[answer_to] = &own;
    }
    auto result = publish_result::not_connected;
    const auto failure = platform::guarded([&] {
        result = network_.publish(subject, question_bytes, answer_to);
        if (result != publish_result::sent)
            return;
        const platform::announced_wait others_take_over;
        const auto is_late = [&] {
            platform::scoped_lock inside(guard_);
            return own.state == asking::late;
        };
        // Set before we wait is as good as set meanwhile.
        while (is_late() && own.changed.wait(left_until(deadline))) {
        }
    });
    platform::scoped_lock inside(guard_);
    waiting_.erase(answer_to);
    if (failure)
        std::rethrow_exception(failure);
    answers = std::move(own.answers);
    if (result == publish_result::not_connected)
        return asking::not_connected;
    if (result == publish_result::too_large)
        return asking::too_large;
    if (result == publish_result::broken && own.state == asking::late)
        return asking::disconnected;
    return own.state;
}

} // namespace zel::event_routing::nats
