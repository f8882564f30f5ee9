#include "tools/inspect/report.h"

#include "framework/serialization/json_values.h"
#include "tools/inspect/printable.h"

#include <fmt/format.h>

#include <utility>

namespace inspect {

namespace {

std::string readable_time(double seconds) {
    if (seconds >= 1)
        return fmt::format("{:.2f} s", seconds);
    if (seconds >= 0.001)
        return fmt::format("{:.2f} ms", seconds * 1e3);
    return fmt::format("{:.2f} us", seconds * 1e6);
}

Json::Value as_json(const std::string& text) {
    return zel::serialization::json_values::string(text, {});
}

} // namespace

report reporter::next(double seconds) {
    report made{seconds, {}, counts_.slowest(rows_), counts_.busiest(rows_)};
    auto services = counts_.services();
    const double passed = seconds - last_;
    for (const auto& [service, counts] : services) {
        const auto news = static_cast<double>(counts.messages - reported_[service].messages);
        made.services.push_back({service, counts, passed > 0 ? news / passed : 0});
    }
    last_ = seconds;
    reported_ = std::move(services);
    return made;
}

std::string rates_as_text(const report& shown) {
    std::string text = fmt::format("{:8.1f} s", shown.seconds);
    bool any = false;
    for (const auto& service : shown.services) {
        if (service.all.messages == 0)
            continue;
        any = true;
        text += fmt::format("   {}: {:.0f}/s, {} in all", service.service, service.per_second,
                            service.all.messages);
        if (service.all.failures > 0)
            text += fmt::format(", {} failed", service.all.failures);
    }
    return text + (any ? "\n" : "   nothing was sent\n");
}

std::string tables_as_text(const report& shown) {
    std::string text;
    if (!shown.slowest.empty()) {
        text += fmt::format("\nSlowest handlers\n{:>11}{:>11}{:>10}  {}\n", "longest", "mean",
                            "calls", "handler");
        for (const auto& handler : shown.slowest)
            text += fmt::format("{:>11}{:>11}{:>10}  {}, level {}  [{}]\n",
                                readable_time(handler.longest), readable_time(handler.mean()),
                                handler.calls, handler.service, handler.level,
                                printable(handler.handler));
    }
    if (!shown.busiest.empty()) {
        text += fmt::format("\nBusiest paths\n{:>11}  path\n", "messages");
        for (const auto& path : shown.busiest)
            text +=
                fmt::format("{:>11}  {}  {}\n", path.messages, path.service, printable(path.path));
    }
    return text;
}

Json::Value report_as_json(const report& shown) {
    Json::Value json(Json::objectValue);
    json["seconds"] = shown.seconds;
    for (const char* const list : {"services", "slowest", "busiest"})
        json[list] = Json::Value(Json::arrayValue);
    for (const auto& service : shown.services) {
        Json::Value one(Json::objectValue);
        one["service"] = as_json(service.service);
        one["messages"] = static_cast<Json::UInt64>(service.all.messages);
        one["failures"] = static_cast<Json::UInt64>(service.all.failures);
        one["per_second"] = service.per_second;
        json["services"].append(std::move(one));
    }
    for (const auto& handler : shown.slowest) {
        Json::Value one(Json::objectValue);
        one["service"] = as_json(handler.service);
        one["handler"] = as_json(handler.handler);
        one["level"] = handler.level;
        one["calls"] = static_cast<Json::UInt64>(handler.calls);
        one["mean_seconds"] = handler.mean();
        one["longest_seconds"] = handler.longest;
        json["slowest"].append(std::move(one));
    }
    for (const auto& path : shown.busiest) {
        Json::Value one(Json::objectValue);
        one["service"] = as_json(path.service);
        one["path"] = as_json(path.path);
        one["messages"] = static_cast<Json::UInt64>(path.messages);
        json["busiest"].append(std::move(one));
    }
    return json;
}

} // namespace inspect
