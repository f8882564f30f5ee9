// What the tests of the routing services share: the services, handlers that leave notes
// and handlers that stand still.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"
#include "framework/serialization/payload.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <platform/clocks.h>
#include <tasklib/keep_registered.h>

#include <array>
#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

namespace zel::event_routing::impl {

using cookie = std::shared_ptr<tasklib::keep_registered>;
using cookies = std::vector<cookie>;
using texts = std::vector<std::string>;

using platform::signal;

/// The unbiased clock; stands still unless a test moves it, so that nothing is due by
/// accident.
struct stopped_clock {
    static inline std::atomic<std::int64_t> ticks{1'000'000'000};
    const platform::clock_replacement stopped{platform::clock::unbiased_time,
                                              [] { return platform::clock_reading(ticks); }};
};

/// For ends that nothing announces.
inline bool comes_true(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + platform::patience;
    while (!condition() && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    return condition();
}

inline std::string text_of(const std::shared_ptr<const serialization::IDataHolder>& payload) {
    std::string scratch;
    const auto* const text = serialization::GetDataValue(payload, scratch);
    return text ? *text : "none";
}

/// What several threads find that look for it at once.
auto found_by_threads(const auto& find) {
    std::array<decltype(find()), 4> found;
    std::vector<std::jthread> threads;
    for (auto& one : found)
        threads.emplace_back([&] { one = find(); });
    for (auto& thread : threads)
        thread.join();
    return std::set(found.begin(), found.end());
}

inline const routing_parameters until_ended{{parameter::synchronous, -1}};
inline const routing_parameters without_failure{{parameter::suppress_not_processed_exception, 1}};

class Routing : public testing::Test {
protected:
    cookie listen(const std::string& path, const synchronous_event_part& first,
                  const asynchronous_event_part& second = nullptr,
                  const std::string& description = "x",
                  const std::shared_ptr<tasklib::task_queue_ifc>& queue = nullptr) {
        return events->RegisterEventHandler(queue, path, first, second, description);
    }
    cookie answer(const std::string& path, const request_handler& handler,
                  const std::string& description = "x") {
        return requests->RegisterRequestHandler(path, 0, handler, description);
    }
    cookie fallback(const std::string& path, const request_handler& handler,
                    const std::string& description = "x") {
        return requests->RegisterRequestFallbackHandler(path, handler, description);
    }
    cookie redirect(const std::string& path, const request_handler& handler,
                    const std::string& description = "x") {
        return requests->RegisterRequestRedirectionHandler(path, handler, description);
    }
    cookie collect(const std::string& path, const snowball_handler& handler,
                   const std::string& description = "x") {
        return snowballs->RegisterSnowballHandler(path, handler, description);
    }
    void broadcast(const std::string& paths, const routing_parameters& parameters = {}) {
        events->BroadcastEvent(paths, data, parameters, nullptr);
    }
    bool ask(const std::string& path, const routing_parameters& parameters = {}) {
        return requests->SendRequest(path, data, response, error_response, parameters);
    }
    void roll(const std::string& path, const routing_parameters& parameters = {}) {
        snowballs->SendSnowball(path, data, response, error_response, parameters);
    }

    // As any handler: leaves its name and the path it was given, and answers.
    auto notes(const std::string& name, bool answer = true) {
        return [=, this](const std::string& path, auto&&...) {
            note(name + "<" + path + ">");
            return answer;
        };
    }
    void note(const std::string& text) {
        const std::lock_guard inside(guard_);
        noted_ += (noted_.empty() ? "" : " ") + text;
    }
    std::string taken_notes() {
        const std::lock_guard inside(guard_);
        return std::exchange(noted_, {});
    }
    std::string notes_of(const std::string& paths, const routing_parameters& parameters = {}) {
        broadcast(paths, parameters);
        return taken_notes();
    }
    // As any handler: stands still until it is told to go on.
    auto blocks() {
        return [this](auto&&...) {
            running.set();
            EXPECT_TRUE(go_on.comes());
            return true;
        };
    }

    signal running, go_on;
    std::shared_ptr<serialization::IDataHolder> response, error_response;
    std::shared_ptr<const serialization::IDataHolder> data;
    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::shared_ptr<RequestRoutingImpl> requests = std::make_shared<RequestRoutingImpl>(events);
    std::shared_ptr<SnowballRoutingImpl> snowballs = std::make_shared<SnowballRoutingImpl>();

private:
    std::mutex guard_;
    std::string noted_;
};

} // namespace zel::event_routing::impl
