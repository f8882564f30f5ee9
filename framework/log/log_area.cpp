#include "framework/log/log_area.h"

#include "framework/exceptions/exceptions.h"
#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/neighbour_module.h"

namespace zel::log {

namespace {

class log_library : public mi::neighbour_module<ILogModule> {
public:
    log_library()
        : neighbour_module({"zel_log", "_ZN3zel3log6detail15CreateLogModuleEv",
                            "_ZN3zel3log6detail23GetModuleLifetimeObjectEv"}) {}
};

// Ends after everything in this library that may still have something to say.
constexpr int longevity = lifetime::host_threshold;
constinit lifetime::basic_singleton<log_library, lifetime::const_longevity_traits<longevity>>
    library;

std::shared_ptr<ILogModule> log_if_alive() {
    try {
        return library.read([](const log_library& l) { return l.lock(); });
    } catch (const lifetime::object_already_destroyed&) {
        return nullptr; // this library is ending, there is nobody left to tell
    }
}

} // namespace

std::shared_ptr<ILogModule> get_log_module() {
    if (auto module = library.read([](const log_library& l) { return l.lock(); }))
        return module;
    throw exceptions::error("Log Module already unloaded.");
}

std::shared_ptr<ILogModule> log_area::wanted(int severity) {
    auto log = log_if_alive();
    if (log && log->LowestSeverity() > severity)
        log.reset();
    return log;
}

int log_area::severity_of_failure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const exceptions::fatal&) {
        return severity::fatal_failure;
    } catch (...) {
        return severity::handler_failed;
    }
}

void log_area::hand_over(ILogModule& log, int severity, source_position& position,
                         const std::string& text, const std::exception_ptr& failure) const {
    const source_identifier source = position.identifier();
    log.Write({module_, {source.data(), source.size()}, position.line(), severity, text, failure});
}

} // namespace zel::log
