// Asking an object for an interface by a 128-bit identifier.
//
//     if (auto* source = query<companion_source_ifc>(object)) source->get_companion(...);
#pragma once

#include <platform/export.h>

#include <cstdint>
#include <string_view>

namespace zel::tasklib {

/// Written as five groups of hexadecimal digits; a malformed one does not compile.
class interface_id {
public:
    consteval interface_id(std::string_view text) {
        if (text.size() != 36)
            throw "an identifier has 36 characters";
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (i == 8 || i == 13 || i == 18 || i == 23) {
                if (text[i] != '-')
                    throw "the groups are separated by hyphens";
                continue;
            }
            high_ = high_ << 4 | low_ >> 60;
            low_ = low_ << 4 | digit(text[i]);
        }
    }

    friend constexpr bool operator==(const interface_id&, const interface_id&) = default;

private:
    static consteval std::uint64_t digit(char c) {
        if (c >= '0' && c <= '9')
            return static_cast<std::uint64_t>(c - '0');
        if (c >= 'A' && c <= 'F')
            return static_cast<std::uint64_t>(c - 'A') + 10;
        throw "digits are 0 to 9 and A to F";
    }

    std::uint64_t high_ = 0;
    std::uint64_t low_ = 0;
};

/// The base of what can be asked for.
class ZEL_EXPORT versioned_ifc {
public:
    static constexpr interface_id id{"69BEFB91-6FC2-4BF3-B2BF-A1F03227BED9"};

    virtual ~versioned_ifc() = default;
    /// The interface of that identifier, or null. It lives as long as this object.
    virtual versioned_ifc* query_interface(const interface_id& wanted) = 0;

protected:
    versioned_ifc() = default;
    versioned_ifc(const versioned_ifc&) = default;
    versioned_ifc& operator=(const versioned_ifc&) = default;
};

template <class Interface>
Interface* query(versioned_ifc& object) {
    return static_cast<Interface*>(object.query_interface(Interface::id));
}

} // namespace zel::tasklib
