#include <event_routing/component_host.h>

#include "framework/exceptions/exceptions.h"
#include "framework/log/log_area.h"
#include "framework/module_interface/neighbour_module.h"

#include <event_routing/component.h>

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing {

namespace {

constexpr log::log_area host_log("event_rout");
constinit log::source_position library_stays(
    "event_routing/framework/event_routing/src/event_routing/components/component_host.cpp", 1);

} // namespace

std::string stopped_library::text() const {
    if (is_unmapped)
        return "The library " + library + " is unmapped.";
    if (in_use.empty())
        return "The library " + library + " stays mapped, because " +
               (is_loaded_by_others ? "others have loaded it, too."
                                    : "something outside of the loader keeps it mapped.");
    std::string text = "The library " + library + " stays mapped, because there is still in use: ";
    for (const auto& use : in_use)
        text += (&use == &in_use.front() ? "" : "; ") + use;
    return text;
}

struct component_host::component {
    component(const std::string& name, const std::string& start)
        : library(name), entry(start), loaded(name) {}

    void start();
    stopped_library stop(platform::milliseconds longest);

    const std::string library;
    const std::string entry;
    mi::loaded_library loaded; // outlives what was made, whose code is in it
    std::shared_ptr<void> made;
};

void component_host::component::start() {
    const auto function = loaded.function<decltype(start_event_routing_component)>(entry.c_str());
    std::string reason = "it gave the host nothing to hold";
    // What is thrown is code of the library: only its text may outlive it.
    if (const auto failure = platform::guarded([&] { function(made); }))
        reason = exceptions::brief_text(failure);
    else if (made)
        return;
    made.reset();
    throw exceptions::error("The component " + library + " could not be started: " + reason);
}

stopped_library component_host::component::stop(platform::milliseconds longest) {
    constexpr std::size_t enough = 20; // of what is in use, for a person to read
    made.reset();
    const auto image = loaded.image();
    const auto state = loaded.give_back();
    stopped_library end{
        library, state == mi::library_state::unmapped, {}, state == mi::library_state::loaded};
    if (state == mi::library_state::kept) {
        end.is_unmapped = mi::loader().unload_kept(image, longest);
        if (!end.is_unmapped)
            end.in_use = mi::loader().describe_uses(image, enough);
    }
    return end;
}

component_host::component_host() = default;

component_host::~component_host() {
    const auto failure = platform::guarded([&] {
        for (const auto& end : stop_all())
            host_log.write(log::severity::failed_operation, library_stays,
                           [&] { return end.text(); });
    });
    if (failure)
        host_log.report(log::severity::failed_operation, library_stays, failure,
                        [] { return std::string("Components could not be stopped"); });
}

void component_host::start(const std::string& library, const std::string& entry) {
    running_.reserve(running_.size() + 1); // first, so that nothing fails once it is started
    auto fresh = std::make_unique<component>(library, entry);
    fresh->start();
    running_.push_back(std::move(fresh));
}

// The components of a library, the latest last.
std::vector<std::unique_ptr<component_host::component>>
component_host::take(const std::string& library) {
    std::vector<std::unique_ptr<component>> taken;
    taken.reserve(running_.size());
    for (auto& c : running_)
        if (c->library == library)
            taken.push_back(std::move(c));
    if (taken.empty())
        throw exceptions::error("There is no component of the library " + library + ".");
    std::erase(running_, nullptr);
    return taken;
}

stopped_library component_host::stop(const std::string& library, platform::milliseconds longest) {
    auto stopping = take(library);
    stopped_library end;
    std::exception_ptr first_failure; // the others are stopped in their order nevertheless
    for (; !stopping.empty(); stopping.pop_back()) {
        const auto failure = platform::guarded([&] {
            end = stopping.back()->stop(longest); // the last one ends the library
        });
        if (!first_failure)
            first_failure = failure;
    }
    if (first_failure)
        std::rethrow_exception(first_failure);
    return end;
}

void component_host::reload(const std::string& library, platform::milliseconds longest) {
    std::vector<std::string> entries;
    for (const auto& c : running_)
        if (c->library == library)
            entries.push_back(c->entry);
    const auto end = stop(library, longest);
    if (!end.is_unmapped)
        throw exceptions::error("The component " + library +
                                " is stopped and was not started again. " + end.text());
    for (const auto& entry : entries)
        start(library, entry);
}

std::vector<stopped_library> component_host::stop_all(platform::milliseconds longest) {
    std::vector<stopped_library> left;
    std::exception_ptr first_failure; // the others are stopped in their order nevertheless
    while (!running_.empty()) {
        const auto last = std::move(running_.back());
        running_.pop_back();
        const auto failure = platform::guarded([&] {
            auto end = last->stop(longest);
            const bool is_last_of_library =
                std::none_of(running_.begin(), running_.end(),
                             [&](const auto& c) { return c->library == end.library; });
            if (is_last_of_library && !end.is_unmapped)
                left.push_back(std::move(end));
        });
        if (!first_failure)
            first_failure = failure;
    }
    if (first_failure)
        std::rethrow_exception(first_failure);
    return left;
}

std::vector<std::string> component_host::running() const {
    std::vector<std::string> libraries;
    for (const auto& c : running_)
        libraries.push_back(c->library);
    return libraries;
}

} // namespace zel::event_routing
