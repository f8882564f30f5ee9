#include "framework/event_routing/src/event_routing/module/module_reference.h"

#include "framework/event_routing/src/event_routing/enumeration/handler_enumeration.h"
#include "framework/event_routing/src/event_routing/module/message_counters.h"
#include "framework/event_routing/src/event_routing/module/parameter_bytes.h"
#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling_manager.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    end_failed("event_routing/framework/event_routing/src/event_routing/module_reference.cpp", 99);

} // namespace

std::string unique_name(std::string_view base, std::uint32_t number) {
    constexpr std::string_view fixed_text = "ADD3D808-347A-4DF5-B2E8-C234DA07DCEC-";
    const std::string digits = std::to_string(number);
    if (base.size() + fixed_text.size() + digits.size() > longest_bytes)
        throw std::length_error("string too long");
    std::string name;
    name.reserve(base.size() + fixed_text.size() + digits.size());
    name.append(base).append(fixed_text).append(digits);
    return name;
}

ThisModule::ThisModule()
    : event_routing_(std::make_shared<EventRoutingImpl>()),
      request_routing_(std::make_shared<RequestRoutingImpl>(event_routing_)),
      snowball_routing_(std::make_shared<SnowballRoutingImpl>()) {
    register_enumeration_handlers(
        {*event_routing_, named_event_routings_, *request_routing_, *snowball_routing_},
        registrations_);
}

ThisModule::~ThisModule() {
    const platform::no_cancellation to_the_end;
    const auto failure = platform::guarded([&] {
        registrations_.clear();
        event_routing_->EndAndWaitForHandlers();
        request_routing_->WaitForTasks();
        snowball_routing_->WaitForTasks();
    });
    if (failure)
        routing_log.report_handler_failure(end_failed, failure, [] {
            return std::string("zel::event_routing::impl::ThisModule::~ThisModule");
        });
}

std::shared_ptr<IEventRouting> ThisModule::GetEventRouting() {
    return event_routing_;
}

std::shared_ptr<IEventRouting> ThisModule::GetNamedEventRouting(const std::string& name) {
    return named_event_routings_.get(name);
}

std::shared_ptr<IRequestRouting> ThisModule::GetRequestRouting() {
    return request_routing_;
}

std::shared_ptr<ISnowballRouting> ThisModule::GetSnowballRouting() {
    return snowball_routing_;
}

std::shared_ptr<IInWndProcHandling>
ThisModule::GetInWndProcHandling(platform::window_handle window) {
    return InWndProcHandlingManager::GetHandling(window, event_routing_);
}

std::vector<std::uint8_t>
ThisModule::SerializeRoutingParameters(const routing_parameters& parameters) {
    return parameters_to_bytes(parameters);
}

routing_parameters ThisModule::DeserializeRoutingParameters(const std::uint8_t* data,
                                                            std::size_t size) {
    if (!data && size > 0)
        throw exceptions::error("Invalid binary event routing data");
    return parameters_from_bytes({data, size});
}

std::string ThisModule::CreateUniqueName(const std::string& base) {
    return unique_name(base, unique_names_.fetch_add(1, std::memory_order_relaxed) + 1);
}

std::uint32_t ThisModule::NextEventMessageId() {
    return next_event_message_id();
}

std::uint32_t ThisModule::NextRequestMessageId() {
    return next_request_message_id();
}

std::uint32_t ThisModule::NextSnowballMessageId() {
    return next_snowball_message_id();
}

std::string ThisModule::describe_registrations() {
    constexpr std::size_t enough = 20;
    std::vector<std::string> lines;
    const auto add = [&lines](const std::string& service, const auto& handlers) {
        for (const auto& [path, description] : handlers)
            lines.push_back(fmt::format("{} '{}' ({})", service, path, description));
    };
    add("events", event_routing_->GetEventHandlers());
    for (const auto& [name, instance] : named_event_routings_.all())
        add(fmt::format("events of '{}'", name), instance->GetEventHandlers());
    add("requests", request_routing_->GetRequestHandlers());
    add("snowballs", snowball_routing_->GetSnowballHandlers());
    if (lines.empty())
        return "none";
    const std::size_t more = lines.size() - std::min(enough, lines.size());
    lines.resize(lines.size() - more);
    return fmt::format("{}{}", fmt::join(lines, ", "),
                       more > 0 ? fmt::format(" and {} more", more) : "");
}

} // namespace zel::event_routing::impl
