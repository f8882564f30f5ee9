// How many objects of this library are alive.
//
// Each shared library has its own counts. They tell when a library may be
// unmapped, and let the last module wait a moment for stragglers. An object counts
// itself out a few instructions before its destructor returns, and its memory is freed
// after that. Whoever frees a library must make sure that no other thread is just
// releasing one of its objects, unless platform/counted_object.h has made that: then the
// image is in use until all is over. Tasks and the interface objects of hosts and plug-ins
// are not made so as a rule.
#pragma once

#include <cstdint>

namespace zel::mi {

namespace live_objects {

struct counts {
    std::int32_t modules;
    std::int32_t objects; ///< every interface object, modules included
};

counts current() noexcept;
void add_object() noexcept;
void remove_object() noexcept;
void add_module() noexcept;

/// Counts a module out. After the last one waits, ten times a millisecond at
/// most, while objects besides that module are alive.
void remove_module() noexcept;

} // namespace live_objects

/// Lies inside the library that this is linked into.
const void* implementation_address() noexcept;

} // namespace zel::mi
