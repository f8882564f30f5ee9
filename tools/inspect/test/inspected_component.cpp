// Components of all kinds for inspect_test.sh, one for each exported function.
#include <event_routing/component.h>
#include <event_routing/typed.h>

#include <platform/event.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
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

cookies register_events(IModule& module) {
    const auto heard = [](auto&&...) { return true; };
    const auto events = get_event_routing(module);
    const auto forwards = [events](auto&, const event_data& data, auto& about) {
        events->BroadcastEvent("document.saved", data, about, nullptr);
        return true;
    };
    const auto on = [&](const char* path, const synchronous_event_part& part,
                        const char* description, const asynchronous_event_part& later = nullptr) {
        return events->RegisterEventHandler(nullptr, path, part, later, description);
    };
    return {on("document.saved", heard, "indexer", [](auto&&...) {}),
            on("document.*", heard, "title \"bar\" \\\x1b[31m\n"), on("*", heard, "journal"),
            on("document.forward", forwards, "forwards"),
            get_named_event_routing(module, "ui")
                ->RegisterEventHandler(nullptr, "window.moved", heard, nullptr, "repaint")};
}

cookies register_requests(IRequestRouting& requests) {
    register_data_type<note>();
    const auto spelled = [](const std::string& word) { return word == "right"; };
    const auto doubled = [](const note& given) {
        return note{given.text + given.text, given.pages * 2};
    };
    const auto tells = [](auto&, auto& data, request_answer& response, auto&, auto& about) {
        response = make_payload(std::to_string(about.at("count").number) + " " +
                                about.at("unit").text + (data ? " with data" : ""));
        return true;
    };
    const auto throws = [](auto&&...) -> bool { throw own_failure(); };
    const auto fails = [](auto&, auto&, auto&, request_answer& error, auto&) {
        error = make_payload(note{"out of paper", 0});
        return true;
    };
    const auto on = [&](const char* path, const request_handler& handler, const char* description) {
        return requests.RegisterRequestHandler(path, 0, handler, description);
    };
    return {on("spelling.check", Request<bool, std::string>::RequestHandler(spelled), "dictionary"),
            on("note.double", Request<note, note>::RequestHandler(doubled), "doubles"),
            on("parameters", tells, "reads parameters"), on("fail.throw", throws, "throws"),
            on("fail.answer", fails, "answers with an error")};
}

cookies register_snowballs(ISnowballRouting& snowballs) {
    using menu = std::vector<std::string>;
    const auto on = [&](const std::string& entry) {
        const auto adds = [=](menu& so_far, auto&) { so_far.push_back(entry); };
        return snowballs.RegisterSnowballHandler("menu.build",
                                                 Snowball<menu>::SnowballHandler(adds), entry);
    };
    return {on("open"), on("print")};
}

// Broadcasts and asks all the time on a thread of its own.
class ticking {
public:
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

    const cookies cookies_ = register_requests(*get_request_routing(*get_module()));
    zel::platform::event stop_{zel::platform::reset_mode::manual, false};
    std::thread thread_{[this] { tick(); }};
};

// Prints where a program's own output would go, in every way and at every moment.
struct printing {
    ~printing() { std::cout << "from its end\n"; }
    const std::shared_ptr<zel::tasklib::keep_registered> registered =
        get_request_routing(*get_module())
            ->RegisterRequestHandler("print", 0, Request<std::string>::RequestHandler([] {
                                         std::printf("from a handler\n");
                                         std::cout << "from a stream, and no end of a line";
                                         return std::string("answer");
                                     }),
                                     "prints");
};

// The compiler must not know what lies there, or it refuses to write.
volatile std::uintptr_t nowhere = 64;

struct crashing {
    const std::shared_ptr<zel::tasklib::keep_registered> registered =
        get_request_routing(*get_module())
            ->RegisterRequestHandler(
                "crash.*", 0,
                [](const std::string& path, auto&&...) {
                    if (path == "crash.fault")
                        *reinterpret_cast<volatile int*>(nowhere) = 1;
                    if (path == "crash.thread")
                        std::thread([] { throw own_failure(); }).join();
                    return false;
                },
                "crashes");
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    const auto module = get_module();
    component = std::make_shared<std::array<cookies, 3>>(
        std::array{register_events(*module), register_requests(*get_request_routing(*module)),
                   register_snowballs(*get_snowball_routing(*module))});
}

extern "C" ZEL_EXPORT void start_ticking(std::shared_ptr<void>& component) {
    component = std::make_shared<ticking>();
}

extern "C" ZEL_EXPORT void start_printing(std::shared_ptr<void>& component) {
    std::printf("from its start\n");
    component = std::make_shared<printing>();
}

extern "C" ZEL_EXPORT void start_crashing(std::shared_ptr<void>& component) {
    component = std::make_shared<crashing>();
}

extern "C" ZEL_EXPORT void start_nothing(std::shared_ptr<void>&) {}

extern "C" ZEL_EXPORT void start_aborting(std::shared_ptr<void>&) {
    std::abort();
}

extern "C" ZEL_EXPORT int no_function;
int no_function = 1;

extern "C" ZEL_EXPORT void start_failing(std::shared_ptr<void>&) {
    throw own_failure();
}
