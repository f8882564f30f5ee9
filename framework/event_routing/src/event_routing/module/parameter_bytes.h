// The byte form of a routing-parameter map.
//
// One record per entry in key order: key length, key, number, text length, text;
// lengths are 4 bytes, the number 8, all little-endian. Nothing else is written.
#pragma once

#include <event_routing/routing_parameters.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zel::event_routing::impl {

/// Byte strings and vectors stop here on every platform.
inline constexpr std::size_t longest_bytes = 0x7FFFFFFF;

/// Throws std::length_error for a form longer than `limit`.
std::vector<std::uint8_t> parameters_to_bytes(const routing_parameters& parameters,
                                              std::size_t limit = longest_bytes);

/// Throws exceptions::error for bytes that are no such form.
routing_parameters parameters_from_bytes(std::span<const std::uint8_t> bytes);

} // namespace zel::event_routing::impl
