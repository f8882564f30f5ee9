// Where in a document a conversion is, and the failure that says so.
#pragma once

#include "framework/exceptions/exceptions.h"

#include <json/value.h>
#include <memory>
#include <string>
#include <string_view>

namespace zel::serialization {

/// A conversion between values and JSON failed. The text says what is wrong with a
/// value, place() which value of the document it is.
class ZEL_EXPORT conversion_error : public exceptions::error {
public:
    [[gnu::noinline]] conversion_error(std::string message, std::string place)
        : error(std::move(message), __builtin_return_address(0)),
          place_(std::make_shared<const std::string>(std::move(place))) {}

    // Copied also where it could be moved, so that none is left without its place.
    conversion_error(const conversion_error&) = default;
    conversion_error& operator=(const conversion_error&) = default;

    /// As in "[0].handlers[2].path"; empty for the document itself.
    const std::string& place() const noexcept { return *place_; }

private:
    std::shared_ptr<const std::string> place_; // shared, so that copying cannot throw
};

/// A value's place in the document; refers to the places around it, which must
/// outlive it.
class json_place {
public:
    /// The document itself.
    json_place() = default;

    /// A member or an element of what is at `outer`. Throws conversion_error beyond the
    /// deepest nesting.
    json_place(const json_place& outer, std::string_view member)
        : json_place(&outer, member, no_index) {}
    json_place(const json_place& outer, Json::ArrayIndex index) : json_place(&outer, {}, index) {}

    std::string text() const;

    /// Throws conversion_error with this place.
    [[noreturn]] void fail(std::string message) const;

private:
    static constexpr Json::ArrayIndex no_index = Json::Value::maxUInt;

    json_place(const json_place* outer, std::string_view member, Json::ArrayIndex index)
        : outer_(outer), member_(member), index_(index), depth_(outer->depth_ + 1) {
        require_depth();
    }
    void require_depth() const;

    const json_place* outer_ = nullptr;
    std::string_view member_;
    Json::ArrayIndex index_ = no_index;
    unsigned depth_ = 0;
};

} // namespace zel::serialization
