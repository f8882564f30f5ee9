#include "libraries/nats_bridge/host_directory.h"

#include "libraries/nats_bridge/origin.h"
#include "libraries/nats_bridge/subject.h"

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

constexpr platform::milliseconds hello_interval{2000};
constexpr std::chrono::seconds longest_silence{10};

bool any_reaches(const std::vector<std::string>& patterns, const std::string& path) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const auto& pattern) { return reaches(pattern, path); });
}

} // namespace

host_directory::host_directory(const bridge_options& options, const std::string& origin,
                               connection& network, platform::event& changed)
    : subject_(subject_of(options.realm, "h", "", "hello")), network_(network), changed_(changed) {
    own_.origin = origin;
    for (const auto& served : options.serve_requests)
        if (served.mode == request_mode::unique)
            own_.unique_requests.push_back(served.pattern);
    for (const auto& served : options.serve_snowballs)
        own_.snowballs.push_back(served.pattern);
}

host_directory::~host_directory() {
    end();
}

void host_directory::begin() {
    network_.subscribe(subject_, [this](const received_message& message) { take(message); });
    connection_came();
    thread_ = std::thread([this] { say_hello_again(); });
}

void host_directory::end() {
    if (!thread_.joinable())
        return;
    {
        platform::scoped_lock inside(guard_);
        is_ending_ = true;
    }
    wake_.set();
    thread_.join();
    say(hello_kind::goodbye);
}

void host_directory::connection_came() noexcept {
    {
        platform::scoped_lock inside(guard_);
        is_news_ = true;
    }
    wake_.set();
}

void host_directory::say_hello_again() {
    for (;;) {
        bool is_news = false;
        {
            platform::scoped_lock inside(guard_);
            if (is_ending_)
                return;
            std::swap(is_news, is_news_);
            std::erase_if(hosts_, [now = clock::now()](const auto& known) {
                return now - known.second.heard > longest_silence;
            });
        }
        say(is_news ? hello_kind::who_is_there : hello_kind::hello);
        wake_.wait(hello_interval);
    }
}

// Without a connection there is nobody to say it to.
void host_directory::say(hello_kind kind) {
    hello_envelope words = own_;
    words.kind = static_cast<std::uint8_t>(kind);
    network_.publish(subject_, envelope_bytes(words));
}

// On a thread of libnats.
void host_directory::take(const received_message& message) {
    auto words = read_envelope<hello_envelope>(message.bytes);
    const auto kind = static_cast<hello_kind>(words.kind);
    if (kind == hello_kind::goodbye)
        return forget(words.origin);
    bool is_new = false;
    {
        platform::scoped_lock inside(guard_);
        const std::string origin = words.origin;
        is_new = hosts_.insert_or_assign(origin, host{std::move(words), clock::now()}).second;
    }
    if (is_new)
        changed_.set();
    if (kind == hello_kind::who_is_there)
        say(hello_kind::hello);
}

std::vector<std::string> host_directory::unique_servers(const std::string& path) {
    std::vector<std::string> origins;
    platform::scoped_lock inside(guard_);
    for (const auto& [origin, known] : hosts_)
        if (any_reaches(known.said.unique_requests, path))
            origins.push_back(origin);
    return origins;
}

std::vector<std::string> host_directory::snowball_servers(const std::string& path) {
    std::vector<std::string> origins;
    platform::scoped_lock inside(guard_);
    for (const auto& [origin, known] : hosts_)
        if (any_reaches(known.said.snowballs, path))
            origins.push_back(origin);
    return origins;
}

bool host_directory::has_all(const std::vector<std::string>& names) {
    platform::scoped_lock inside(guard_);
    std::vector<std::string> missing = names;
    for (const auto& [origin, known] : hosts_)
        std::erase(missing, host_of(origin));
    return missing.empty();
}

void host_directory::forget(const std::string& origin) {
    platform::scoped_lock inside(guard_);
    hosts_.erase(origin);
}

} // namespace zel::event_routing::nats
