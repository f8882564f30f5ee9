// The dispatch of requests against a model of it, for random sets of handlers.
//
// EVENT_ROUTING_MODEL_CASES and EVENT_ROUTING_MODEL_SEED in the environment set how many
// cases are tried and where they begin.
#include "tests/support/routing.h"

#include <event_routing/exceptions.h>
#include <event_routing/request_handling_info.h>

#include <cstdlib>
#include <random>

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
    std::string line() const { return "\n  " + std::to_string(level) + "-" + name; }
};

struct test_case {
    std::vector<handler> handlers;
    routing_parameters parameters;
};

// Everything that sender, handlers and monitor see.
struct outcome {
    std::string told_sender() const { return calls + "| " + result; }
    std::string told_monitor() const {
        std::string text = std::to_string(stage) + " declined " + declined + "processing " +
                           processing + " current " + current + (failed ? " failed" : "");
        for (const auto& [key, value] : parameters)
            text += " " + key + "=" + std::to_string(value.number) + value.text;
        return text;
    }

    std::string calls; // names with "target_session"
    std::string result;
    std::int32_t stage = 0;
    std::string declined, processing, current;
    bool failed = false;
    routing_parameters parameters;
};

std::string call_of(const handler& h, const routing_parameters& parameters) {
    const auto target = parameters.find("target_session");
    return target == parameters.end()
               ? h.name + " "
               : h.name + "(" + std::to_string(target->second.number) + target->second.text + ") ";
}

bool is_local(const routing_parameters& parameters) {
    const auto target = parameters.find("target_session");
    return target != parameters.end() && target->second.number == -3;
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
            seen_.failed = true;
        }
        return seen_;
    }

private:
    bool given(const char* key) const { return all_.parameters.contains(key); }

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
        auto& parameters = seen_.parameters = all_.parameters;
        parameters.erase("supress_not_processed_exception");
        const auto redirections = matching(kind::redirection);
        bool done = !redirections.empty() && pass(5, redirections);
        if (!done && parameters.erase("prefer_local_request_handlers") && !is_local(parameters)) {
            const auto kept = parameters;
            parameters["target_session"] = -3;
            done = pass(1, matching(kind::regular));
            parameters = kept;
        }
        done = done || pass(2, matching(kind::regular));
        if (!done && !given("skip_request_fallbacsk"))
            done = pass(3, matching(kind::fallback));
        seen_.stage = 4;
        if (given("supress_not_processed_exception"))
            return done;
        if (!done)
            throw std::string("not processed");
        return !error_;
    }

    bool pass(int stage, const std::vector<const handler*>& handlers) {
        seen_.stage = stage;
        const handler* processed = nullptr;
        for (const handler* h : handlers) {
            if (processed && (h->level != processed->level || h->priority != processed->priority))
                break;
            seen_.calls += call_of(*h, seen_.parameters);
            seen_.current = h->line();
            if (h->how == behaviour::fail)
                throw "failed in " + h->name;
            error_ = error_ || h->how == behaviour::process_with_error;
            if (h->how == behaviour::decline ||
                (h->how == behaviour::process_locally && !is_local(seen_.parameters)))
                seen_.declined += h->line();
            else if (processed)
                throw "Multiple handler registered for processing of a.b request. Handlers:" +
                    processed->line() + h->line() + ".";
            else
                seen_.processing = (processed = h)->line();
            if (processed && h->what == kind::redirection)
                return true;
            seen_.current.clear();
        }
        return processed != nullptr;
    }

    const test_case& all_;
    outcome seen_;
    bool error_ = false;
};

// --- The real thing ----------------------------------------------------------

class real {
public:
    explicit real(bool with_monitor) {
        if (with_monitor)
            monitor_ = requests_->RegisterMonitorHandler([this](auto&&... arguments) {
                note(arguments...);
                throw std::runtime_error("stays here");
            });
    }

    outcome run(const test_case& all) {
        seen_ = {};
        left_ = nullptr; // the outputs are those of the case before
        cookies held;
        for (const auto& h : all.handlers)
            held.push_back(add(h));
        try {
            const bool result =
                requests_->SendRequest("a.b", data_, response_, error_, all.parameters);
            seen_.result = result ? "true" : "false";
        } catch (const request_was_not_processed&) {
            seen_.result = "not processed";
        } catch (const std::exception& failure) {
            seen_.result = failure.what();
        }
        return seen_;
    }

private:
    void note(const std::string& path, const request_data& data, const request_data& response,
              const request_data& error, const routing_parameters& parameters,
              const monitor::request_handling_info_3& info, const std::exception_ptr& failure) {
        EXPECT_TRUE(path == "a.b" && data == data_ && response == response_ && error == error_);
        const auto text = [&](const monitor::handler_record& record) {
            EXPECT_TRUE(record.elapsed_time <= info.elapsed_time && record.cpu_time >= 0);
            return "\n  " + std::to_string(record.level) + "-" + record.description;
        };
        seen_.stage = info.stage;
        for (const auto& record : info.declined_handlers)
            seen_.declined += text(record);
        if (info.processing_handler)
            seen_.processing = text(*info.processing_handler);
        if (info.current_handler)
            seen_.current = text(*info.current_handler);
        seen_.failed = failure != nullptr;
        seen_.parameters = parameters;
        EXPECT_EQ(seen_.parameters.erase("monitoring_message_id"), 1u);
        EXPECT_EQ(seen_.parameters.erase("monitoring_message_pid"), 1u);
    }

    cookie add(const handler& h) {
        const request_handler callable = [&h, this](auto& path, auto& data, auto& response,
                                                    auto& error, auto& parameters) {
            EXPECT_TRUE(path == "a.b" && data == data_ && response == left_);
            response = left_ = serialization::make_payload(1);
            seen_.calls += call_of(h, parameters);
            switch (h.how) {
            case behaviour::fail:
                throw std::runtime_error("failed in " + h.name);
            case behaviour::process_with_error:
                error = serialization::make_payload(std::string("error"));
                return true;
            case behaviour::process_locally:
                return is_local(parameters);
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
    const request_data data_ = serialization::make_payload(1);
    request_answer response_, error_, left_;
    std::shared_ptr<RequestRoutingImpl> requests_ =
        std::make_shared<RequestRoutingImpl>(std::weak_ptr<IEventRouting>());
    cookie monitor_;
};

// --- The cases ---------------------------------------------------------------

test_case next_case(std::mt19937_64& numbers) {
    const auto below = [&](std::size_t limit) { return static_cast<int>(numbers() % limit); };
    const auto any_of = [&](auto... values) {
        return std::array{values...}[std::size_t(below(sizeof...(values)))];
    };
    test_case made;
    const int count = below(8);
    for (int i = 0; i < count; ++i) {
        const auto what = static_cast<kind>(any_of(0, 1, 1, 1, 1, 2));
        const int priority = what == kind::regular ? below(3) - 1 : 0;
        const auto how = static_cast<behaviour>(any_of(0, 0, 0, 0, 1, 1, 2, 2, 3, 4));
        made.handlers.push_back(
            {what, below(3), priority, how, std::string(1, static_cast<char>('A' + i))});
    }
    for (const char* key : {"supress_not_processed_exception", "prefer_local_request_handlers",
                            "skip_request_fallbacsk", "skip_request_fallbacks"})
        if (below(3) == 0)
            made.parameters[key] = below(2);
    if (below(3) == 0)
        made.parameters["target_session"] = {any_of(-3, 5), any_of("", "text")};
    return made;
}

std::uint64_t number_from_environment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

TEST(RequestModel, AgreesWithTheDispatch) {
    const auto seed = number_from_environment("EVENT_ROUTING_MODEL_SEED", std::random_device()());
    const auto count = number_from_environment("EVENT_ROUTING_MODEL_CASES", 20'000);
    std::cout << "EVENT_ROUTING_MODEL_SEED=" << seed << '\n';
    std::mt19937_64 numbers(seed);
    real watched(true), alone(false);
    for (std::uint64_t i = 0; i < count; ++i) {
        SCOPED_TRACE("case " + std::to_string(i) + ", seed " + std::to_string(seed));
        const auto tried = next_case(numbers);
        const auto predicted = model(tried).predict();
        const auto seen = watched.run(tried);
        ASSERT_EQ(predicted.told_sender(), seen.told_sender());
        ASSERT_EQ(predicted.told_monitor(), seen.told_monitor());
        ASSERT_EQ(predicted.told_sender(), alone.run(tried).told_sender());
    }
}

} // namespace
} // namespace zel::event_routing::impl
