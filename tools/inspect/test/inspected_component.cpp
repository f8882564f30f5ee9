// Components of all kinds for inspect_test.sh, one for each exported function.
#include <event_routing/component.h>
#include <event_routing/typed.h>

#include <platform/event.h>

#include <thread>
#include <vector>

namespace {

using namespace zel::event_routing;
using namespace zel::serialization;

struct note {
    std::string text;
    std::int32_t pages = 0;
};

} // namespace

template <>
struct zel::serialization::record<note> {
    static constexpr std::string_view name = "struct note";
    static constexpr std::tuple fields{field("text", &note::text), field("pages", &note::pages)};
};

namespace {

using cookies = std::vector<std::shared_ptr<zel::tasklib::keep_registered>>;

// A type of this library alone, which must not outlive it.
struct own_failure : std::exception {
    const char* what() const noexcept override { return "no ink"; }
};

void register_events(IModule& module, cookies& kept) {
    const auto heard = [](auto&&...) { return true; };
    const auto events = get_event_routing(module);
    kept.push_back(events->RegisterEventHandler(
        nullptr, "document.saved", heard, [](auto&&...) {}, "indexer"));
    kept.push_back(events->RegisterEventHandler(nullptr, "document.*", heard, nullptr,
                                                "title \"bar\" \\\x1b[31m\n"));
    kept.push_back(events->RegisterEventHandler(nullptr, "*", heard, nullptr, "journal"));
    kept.push_back(events->RegisterEventHandler(
        nullptr, "document.forward",
        [events](const std::string&, const event_data& data, const routing_parameters& about) {
            events->BroadcastEvent("document.saved", data, about, nullptr);
            return true;
        },
        nullptr, "forwards"));
    kept.push_back(get_named_event_routing(module, "ui")
                       ->RegisterEventHandler(nullptr, "window.moved", heard, nullptr, "repaint"));
}

void register_requests(IRequestRouting& requests, cookies& kept) {
    using Check = Request<bool, std::string>;
    kept.push_back(requests.RegisterRequestHandler(
        "spelling.check", 0,
        Check::RequestHandler([](const std::string& word) { return word == "right"; }),
        "dictionary"));
    using Double = Request<note, note>;
    kept.push_back(requests.RegisterRequestHandler("note.double", 0,
                                                   Double::RequestHandler([](note given) {
                                                       given.text += given.text;
                                                       given.pages *= 2;
                                                       return given;
                                                   }),
                                                   "doubles"));
    kept.push_back(requests.RegisterRequestHandler(
        "parameters", 0,
        [](const std::string&, const request_data& data, request_answer& response, request_answer&,
           const routing_parameters& about) {
            response = make_payload(std::to_string(about.at("count").number) + " " +
                                    about.at("unit").text + (data ? " with data" : ""));
            return true;
        },
        "reads parameters"));
    kept.push_back(requests.RegisterRequestHandler(
        "fail.throw", 0, [](auto&&...) -> bool { throw own_failure(); }, "throws"));
    kept.push_back(requests.RegisterRequestHandler(
        "fail.answer", 0,
        [](const std::string&, const request_data&, request_answer&, request_answer& error,
           const routing_parameters&) {
            error = make_payload(note{"out of paper", 0});
            return true;
        },
        "answers with an error"));
}

void register_snowballs(ISnowballRouting& snowballs, cookies& kept) {
    using Menu = Snowball<std::vector<std::string>>;
    for (const char* const entry : {"open", "print"})
        kept.push_back(snowballs.RegisterSnowballHandler(
            "menu.build",
            Menu::SnowballHandler([entry](std::vector<std::string>& so_far, const auto&) {
                so_far.push_back(entry);
            }),
            entry));
}

// Broadcasts and asks all the time on a thread of its own.
class ticking {
public:
    ticking() {
        register_requests(*get_request_routing(*get_module()), cookies_);
        thread_ = std::thread([this] { tick(); });
    }
    ~ticking() {
        stop_.set();
        thread_.join();
    }

private:
    void tick() {
        const auto module = get_module();
        const auto events = get_event_routing(*module);
        const auto late = get_named_event_routing(*module, "late"); // after watching has begun
        const auto requests = get_request_routing(*module);
        request_answer response, error_response;
        while (!stop_.wait(zel::platform::milliseconds(1))) {
            events->BroadcastEvent("clock.tick", nullptr, {}, nullptr);
            late->BroadcastEvent("clock.tock", nullptr, {}, nullptr);
            try {
                requests->SendRequest("fail.throw", nullptr, response, error_response, {});
            } catch (const own_failure&) {
            }
        }
    }

    cookies cookies_;
    zel::platform::event stop_{zel::platform::reset_mode::manual, false};
    std::thread thread_;
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    auto kept = std::make_shared<cookies>();
    const auto module = get_module();
    register_events(*module, *kept);
    register_requests(*get_request_routing(*module), *kept);
    register_snowballs(*get_snowball_routing(*module), *kept);
    component = kept;
}

extern "C" ZEL_EXPORT void start_ticking(std::shared_ptr<void>& component) {
    component = std::make_shared<ticking>();
}

extern "C" ZEL_EXPORT void start_failing(std::shared_ptr<void>&) {
    throw own_failure();
}
