#include "libraries/nats_bridge/peer_clocks.h"

#include "libraries/nats_bridge/subject.h"

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

// Clocks drift by some millionths; after a minute that is still far below a millisecond.
constexpr std::chrono::minutes good_for{1};
constexpr std::size_t most_peers = 1024; // beyond that all are asked anew

} // namespace

std::string peer_clocks::subject(const std::string& realm, const std::string& origin) {
    return subject_of(realm, "h", origin, "clock");
}

bool peer_clocks::is_wanted(const request_envelope& request) {
    reading known;
    {
        platform::scoped_lock inside(guard_);
        known = readings_[request.origin];
    }
    const auto now = steady_clock::now();
    if (known.shown == 0 || now - known.asked > good_for) {
        known.asked = now;
        byte_vector answer;
        const auto deadline =
            now + std::chrono::nanoseconds(std::max<std::int64_t>(request.time_out, 0));
        if (others_.ask(subject(realm_, request.origin), "", deadline, answer) != asking::answered)
            return false;
        known.shown = read_envelope<clock_envelope>(answer).now;
        platform::scoped_lock inside(guard_);
        if (readings_.size() >= most_peers)
            readings_.clear();
        readings_[request.origin] = known;
    }
    const std::chrono::nanoseconds passed = steady_clock::now() - known.asked;
    // Strangers may claim any number, so what is added up here may wrap.
    const auto age = static_cast<std::int64_t>(static_cast<std::uint64_t>(known.shown) +
                                               static_cast<std::uint64_t>(passed.count()) -
                                               static_cast<std::uint64_t>(request.sent));
    return age < request.time_out;
}

} // namespace zel::event_routing::nats
