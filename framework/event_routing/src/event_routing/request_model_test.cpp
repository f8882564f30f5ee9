// The dispatch of requests against a model of it, for random sets of handlers.
//
// EVENT_ROUTING_MODEL_CASES and EVENT_ROUTING_MODEL_SEED in the environment set how many
// cases are tried and where they begin.
#include "framework/event_routing/src/event_routing/request_routing_impl.h"

#include <event_routing/exceptions.h>
#include <event_routing/request_handling_info.h>
#include <framework/serialization/payload.h>

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace zel::event_routing::impl {
namespace {

enum class kind { redirection, regular, fallback };
enum class behaviour { decline, process, process_locally, process_with_error, fail };

struct handler {
    kind what;
    std::int32_t level; // of a registration that matches a.b
    std::int32_t priority;
    behaviour how;
    std::string name;

    std::string path() const { return std::array{"*", "a.*", "a.b"}[std::size_t(level)]; }
};

struct test_case {
    std::vector<handler> handlers;
    routing_parameters parameters;
};

// Everything that sender, handlers and monitor see.
struct outcome {
    std::string calls; // names with "target_session"
    std::string result;
    std::int32_t stage = 0;
    std::string declined, processing, current;
    bool operator==(const outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const outcome& o) {
    return out << "calls " << o.calls << "| result " << o.result << " stage " << o.stage
               << " declined " << o.declined << "processing " << o.processing << " current "
               << o.current;
}

// --- The model ---------------------------------------------------------------

class model {
public:
    explicit model(const test_case& all) : all_(all) {}

    outcome predict() {
        try {
            seen_.result = run() ? "true" : "false";
        } catch (const std::string& failure) {
            seen_.result = failure;
        }
        return seen_;
    }

private:
    bool given(const char* key) const { return all_.parameters.count(key) > 0; }

    std::vector<const handler*> matching(kind what) const {
        std::vector<const handler*> found;
        for (int priority = 3; priority >= -3; --priority)
            for (int level = 2; level >= 0; --level)
                for (const auto& h : all_.handlers)
                    if (h.what == what && h.level == level && h.priority == priority)
                        found.push_back(&h);
        return found;
    }

    bool run() {
        if (given("target_session"))
            target_ = all_.parameters.at("target_session").number;
        const auto redirections = matching(kind::redirection);
        if (!redirections.empty())
            enter(5);
        bool done = pass(redirections, true);
        if (!done && given("prefer_local_request_handlers") && target_ != -3) {
            const auto kept = target_;
            target_ = -3;
            enter(1);
            done = pass(matching(kind::regular), false);
            target_ = kept;
        }
        if (!done) {
            enter(2);
            done = pass(matching(kind::regular), false);
        }
        if (!done && !given("skip_request_fallbacsk")) {
            enter(3);
            done = pass(matching(kind::fallback), false);
        }
        seen_.stage = 4;
        if (given("supress_not_processed_exception"))
            return done;
        if (!done)
            throw std::string("not processed");
        return !error_;
    }

    void enter(int stage) { seen_.stage = stage; }

    bool pass(const std::vector<const handler*>& handlers, bool first_ends) {
        const handler* processed = nullptr;
        for (const handler* h : handlers) {
            if (processed && (h->level != processed->level || h->priority != processed->priority))
                break;
            seen_.calls += h->name + (target_ ? "(" + std::to_string(*target_) + ") " : " ");
            seen_.current = h->name;
            if (h->how == behaviour::fail)
                throw "failed in " + h->name;
            if (h->how == behaviour::process_with_error)
                error_ = true;
            const bool answers = h->how == behaviour::process ||
                                 h->how == behaviour::process_with_error ||
                                 (h->how == behaviour::process_locally && target_ == -3);
            if (!answers) {
                seen_.declined += h->name + " ";
            } else if (processed) {
                throw "two: " + processed->name + " " + h->name;
            } else {
                processed = h;
                seen_.processing = h->name;
            }
            if (answers && first_ends)
                return true;
            seen_.current.clear();
        }
        return processed != nullptr;
    }

    const test_case& all_;
    outcome seen_;
    std::optional<std::int64_t> target_;
    bool error_ = false;
};

// --- The real thing ----------------------------------------------------------

class real {
public:
    explicit real(bool with_monitor) {
        if (with_monitor)
            monitor_ = requests_->RegisterMonitorHandler(
                [this](auto&&, auto&&, auto&&, auto&&, auto&&,
                       const monitor::request_handling_info_3& info,
                       std::exception_ptr) { note(info); });
    }

    outcome run(const test_case& all) {
        seen_ = {};
        std::vector<std::shared_ptr<tasklib::keep_registered>> cookies;
        for (const auto& h : all.handlers)
            cookies.push_back(add(h));
        request_answer response, error_response;
        try {
            seen_.result =
                requests_->SendRequest("a.b", nullptr, response, error_response, all.parameters)
                    ? "true"
                    : "false";
        } catch (const request_was_not_processed&) {
            seen_.result = "not processed";
        } catch (const multiple_request_handlers& failure) {
            std::istringstream words(failure.what());
            std::string word, names;
            while (words >> word)
                if (const auto dash = word.find('-'); dash != std::string::npos)
                    names += " " + word.substr(dash + 1);
            names.pop_back(); // the full stop
            seen_.result = "two:" + names;
        } catch (const std::runtime_error& failure) {
            seen_.result = failure.what();
        }
        return seen_;
    }

private:
    void note(const monitor::request_handling_info_3& info) {
        seen_.stage = info.stage;
        for (const auto& h : info.declined_handlers)
            seen_.declined += h.description + " ";
        if (info.processing_handler)
            seen_.processing = info.processing_handler->description;
        if (info.current_handler)
            seen_.current = info.current_handler->description;
    }

    std::shared_ptr<tasklib::keep_registered> add(const handler& h) {
        const request_handler callable = [&h, this](auto&&, auto&&, auto&&, request_answer& error,
                                                    const routing_parameters& parameters) {
            const auto target = parameters.find("target_session");
            const bool has_target = target != parameters.end();
            seen_.calls += h.name;
            seen_.calls += has_target ? "(" + std::to_string(target->second.number) + ") " : " ";
            switch (h.how) {
            case behaviour::fail:
                throw std::runtime_error("failed in " + h.name);
            case behaviour::process_with_error:
                error = serialization::make_payload(std::string("error"));
                return true;
            case behaviour::process_locally:
                return has_target && target->second.number == -3;
            default:
                return h.how == behaviour::process;
            }
        };
        switch (h.what) {
        case kind::redirection:
            return requests_->RegisterRequestRedirectionHandler(h.path(), callable, h.name);
        case kind::fallback:
            return requests_->RegisterRequestFallbackHandler(h.path(), callable, h.name);
        default:
            return requests_->RegisterRequestHandler(h.path(), h.priority, callable, h.name);
        }
    }

    outcome seen_;
    std::shared_ptr<RequestRoutingImpl> requests_ =
        std::make_shared<RequestRoutingImpl>(std::weak_ptr<IEventRouting>());
    std::shared_ptr<tasklib::keep_registered> monitor_;
};

// --- The cases ---------------------------------------------------------------

class case_maker {
public:
    explicit case_maker(std::uint64_t seed) : numbers_(seed) {}

    test_case next() {
        test_case made;
        const int count = below(8);
        for (int i = 0; i < count; ++i) {
            const auto what =
                static_cast<kind>(std::array{0, 1, 1, 1, 1, 2}[std::size_t(below(6))]);
            made.handlers.push_back({what, below(3), what == kind::regular ? below(3) - 1 : 0,
                                     static_cast<behaviour>(std::array{0, 0, 0, 0, 1, 1, 2, 2, 3,
                                                                       4}[std::size_t(below(10))]),
                                     std::string(1, static_cast<char>('A' + i))});
        }
        for (const char* key : {"supress_not_processed_exception", "prefer_local_request_handlers",
                                "skip_request_fallbacsk", "skip_request_fallbacks"})
            if (below(3) == 0)
                made.parameters[key] = below(2);
        if (below(3) == 0)
            made.parameters["target_session"] = below(2) == 0 ? -3 : 5;
        return made;
    }

private:
    int below(int limit) { return static_cast<int>(numbers_() % static_cast<unsigned>(limit)); }

    std::mt19937_64 numbers_;
};

std::uint64_t number_from_environment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

TEST(RequestModel, AgreesWithTheDispatch) {
    const auto seed = number_from_environment("EVENT_ROUTING_MODEL_SEED", std::random_device()());
    const auto count = number_from_environment("EVENT_ROUTING_MODEL_CASES", 20'000);
    std::cout << "EVENT_ROUTING_MODEL_SEED=" << seed << '\n';
    case_maker cases(seed);
    real watched(true), alone(false);
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto tried = cases.next();
        const auto predicted = model(tried).predict();
        ASSERT_EQ(predicted, watched.run(tried)) << "case " << i << ", seed " << seed;
        const auto unwatched = alone.run(tried);
        ASSERT_EQ(predicted.calls, unwatched.calls) << "case " << i << ", seed " << seed;
        ASSERT_EQ(predicted.result, unwatched.result) << "case " << i << ", seed " << seed;
    }
}

} // namespace
} // namespace zel::event_routing::impl
