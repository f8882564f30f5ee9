// The program that docs/guide.md quotes. Ends with 1 and names the first surprise,
// so that the guide cannot promise what the library does not do.
#include <event_routing/client.h>

#include <framework/log/log_module.h>
#include <framework/serialization/payload.h>
#include <platform/diagnostics.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

using namespace zel::event_routing;
using namespace zel::serialization;

enum class paper : std::int32_t { a4 = 0, letter = 1 };

struct document {
    int pages = 0;
    paper size = paper::a4;
    std::vector<std::string> authors;
};

template <>
struct zel::serialization::enumeration<paper> {
    static constexpr std::string_view name = "enum paper";
    static constexpr std::pair<paper, std::string_view> values[] = {{paper::a4, "a4"},
                                                                    {paper::letter, "letter"}};
};

template <>
struct zel::serialization::record<document> {
    static constexpr std::string_view name = "struct document";
    static constexpr std::tuple fields{field("pages", &document::pages),
                                       field("size", &document::size),
                                       field("authors", &document::authors)};
};

// One thread logs in this program; where several do, the list needs a lock.
class collecting_sink final : public zel::log::ILogSink {
public:
    void Write(const zel::log::record& entry) override { texts.emplace_back(entry.text); }

    std::vector<std::string> texts;
};

static void require(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "guide_example: %s\n", what);
    std::exit(1);
}

int main() {
    const auto module = get_module();
    const auto events = get_event_routing(*module);

    std::string seen;
    const auto title_bar = events->RegisterEventHandler(
        nullptr, "document.*",
        [&](const std::string& path, const event_data& data, const routing_parameters& about) {
            seen = path;
            document scratch;
            if (const document* saved = GetDataValue(data, scratch))
                seen += " " + std::to_string(saved->pages);
            seen += " " + text_or(about, "reason", "for no reason");
            return true;
        },
        nullptr, "title bar");

    routing_parameters about;
    about["reason"] = "shutdown"; // a text
    about["attempt"] = 2;         // a number
    const auto data = make_payload(document{3, paper::a4, {"A"}});
    events->BroadcastEvent("document.saved;document.closed", data, about, nullptr);
    require(seen == "document.saved;document.closed 3 shutdown", "one call with both paths");
    events->BroadcastEvent("document.saved", nullptr, {}, nullptr);
    require(seen == "document.saved for no reason", "no payload and no parameters are fine");

    Json::Value text = json_from_text(R"({"pages": 4, "size": "letter", "authors": ["A", 5]})");
    try {
        document read;
        FromJson(text, read);
        require(false, "5 is no author");
    } catch (const conversion_error& failure) {
        require(failure.what() ==
                        std::string("zel::serialization::FromJson: String value expected.") &&
                    failure.place() == "authors[1]",
                "a failure names the place");
    }
    text["authors"][1] = "B";
    events->BroadcastEvent("document.saved", make_json_payload(text), {}, nullptr);
    require(seen == "document.saved 4 for no reason",
            "JSON is read as the type that the handler asks for");

    const auto log = zel::log::get_log_module();
    const auto sink = std::make_shared<collecting_sink>();
    const auto following = log->AddSink(sink, zel::log::severity::failed_operation);
    log->SetDefaultSinkSeverity(zel::log::silent); // nothing on standard error any more

    int reported = 0;
    const zel::platform::exception_observer observer([&](auto code, auto arguments) {
        if (code == zel::platform::diagnostic::exception_report)
            reported += *reinterpret_cast<const std::exception_ptr*>(arguments[0]) != nullptr;
    });

    auto backup = events->RegisterEventHandler(
        nullptr, "document.saved", [](auto&&...) -> bool { throw std::runtime_error("disk full"); },
        nullptr, "backup");
    events->BroadcastEvent("document.saved", nullptr, {}, nullptr);
    events->BroadcastEvent("document.saved", nullptr, {}, nullptr);
    require(sink->texts.size() == 2 &&
                sink->texts[1] == "Synchronous part of handler for document.saved, level=2, "
                                  "description=backup throws exception!\ndisk full",
            "every failure is logged");
    require(reported == 1, "observers are told of a path and description once");

    backup.reset(); // unregisters
    events->BroadcastEvent("document.saved", nullptr, {}, nullptr);
    require(sink->texts.size() == 2, "a dropped handler is not called");
    try {
        backup = events->RegisterEventHandler(nullptr, "*.saved", nullptr, nullptr, "refused");
    } catch (const zel::exceptions::error&) {
        return 0; // an asterisk stands for the end of a path only
    }
    require(false, "a misplaced asterisk is refused");
}
