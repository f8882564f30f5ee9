// Sends all the time, on threads of its own, whatever the others handle.
#include "tests/reload/plugin.h"

#include <thread>

using namespace zel::test;
using namespace zel::serialization;

namespace {

class traffic {
public:
    ~traffic() {
        ends_ = true;
        threads_.clear(); // joins
    }

private:
    void send() {
        request_answer response, error_response;
        for (unsigned number = 0; !ends_; ++number) {
            to_.events->BroadcastEvent(paths::work, make_payload(std::string("item")), {}, nullptr);
            to_.events->BroadcastCumulativeEvent({false, 300}, paths::pulse, nullptr, {}, nullptr);
            try {
                Count::Ask(*to_.requests, paths::count, number % 8 == 0 ? "none" : "three");
            } catch (const std::exception&) { // nobody there, or nothing to count
            }
            to_.requests->SendRequest(paths::draw, nullptr, response, error_response,
                                      {{"supress_not_processed_exception", 1}});
            Menu::Send(*to_.snowballs, paths::menu, {}, {"new"});
        }
    }

    const services to_{};
    // Keeps what is sent to it for a moment, on a thread of the task library.
    const std::shared_ptr<zel::tasklib::keep_registered> looks_ = to_.events->RegisterEventHandler(
        to_.events->CreateTaskQueue(), paths::made, nullptr,
        [](const std::string&, const event_data& data, const routing_parameters&) {
            drawing scratch;
            const drawing* const seen = GetDataValue(data, scratch);
            if (!seen || seen->strokes.empty())
                std::abort(); // a drawing of others cannot be read
        },
        "looks at drawings");
    std::atomic<bool> ends_{false};
    std::vector<std::jthread> threads_ = [this] {
        std::vector<std::jthread> made;
        for (int i = 0; i < 2; ++i)
            made.emplace_back([this] { send(); });
        return made;
    }();
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    component = std::make_shared<traffic>();
}
