// What a task is called. Hardly anybody looks, so a name may be put together then.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace zel::tasklib {

class task_name {
public:
    task_name(std::string text) : name_(std::move(text)) {}
    task_name(const char* text) : name_(std::string(text)) {}
    /// What the function makes of a text.
    task_name(std::string (*make)(const std::string&), std::shared_ptr<const std::string> of)
        : name_(later{make, std::move(of)}) {}

    std::string text() const {
        const auto* const made_later = std::get_if<later>(&name_);
        return made_later ? made_later->make(*made_later->of) : std::get<std::string>(name_);
    }

    /// Only a text is ever empty.
    bool is_empty() const noexcept {
        const auto* const text = std::get_if<std::string>(&name_);
        return text && text->empty();
    }

private:
    struct later {
        std::string (*make)(const std::string&);
        std::shared_ptr<const std::string> of;
    };

    std::variant<std::string, later> name_;
};

} // namespace zel::tasklib
