// Paths as subjects of NATS, and back.
//
//     er.<realm>.<kind>.<channel>.<path>
//
// A subject's token may hold neither a space nor "*" or ">", and never be empty; the client
// library sends what it is given, so a path with a line end in it would be a command to the
// server. A name therefore keeps letters, digits, "-" and "_", every other byte becomes "=" and
// two digits, and the empty name is "=" alone. Different paths have different subjects, and
// each has one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zel::event_routing::nats {

/// A server takes a line of 4096 bytes by default, in which a subject, a subject for answers
/// and three numbers have to fit.
inline constexpr std::size_t longest_subject = 1536;

struct decoded_subject {
    std::string realm;
    std::string kind; ///< "e" for events
    std::string channel;
    std::string path;

    bool operator==(const decoded_subject&) const = default;
};

/// One name as a token. A realm, a channel and a host are one name each, whatever is in them.
std::string token_of(std::string_view name);

/// The subject of a message. Throws exceptions::error, which names the path, when it is too long.
std::string subject_of(std::string_view realm, std::string_view kind, std::string_view channel,
                       std::string_view path);

/// What to subscribe to for what a registration path is reached by. Throws exceptions::error for
/// a misplaced "*", and when it is too long.
std::string subject_of_pattern(std::string_view realm, std::string_view kind,
                               std::string_view channel, std::string_view pattern);

/// Throws exceptions::error for a subject that subject_of does not make.
decoded_subject read_subject(std::string_view subject);

/// Whether a "*" stands in a registration path anywhere but as the whole last name.
bool has_misplaced_wildcard(std::string_view pattern);

/// Whether a handler registered for the pattern is reached by the path.
bool reaches(std::string_view pattern, std::string_view path);

/// Whether some path reaches both registration paths.
bool overlap(std::string_view pattern, std::string_view other);

} // namespace zel::event_routing::nats
