#include "libraries/nats_bridge/subject.h"

#include "framework/exceptions/exceptions.h"

#include <utility>

namespace zel::event_routing::nats {

namespace {

constexpr std::string_view prefix = "er";
constexpr std::string_view digits = "0123456789ABCDEF";

// Not std::isalnum, which asks the locale.
bool is_kept(char byte) noexcept {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

void append_token(std::string& out, std::string_view name) {
    if (name.empty())
        out += '=';
    for (const char byte : name) {
        if (is_kept(byte)) {
            out += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        out += {'=', digits[value >> 4], digits[value & 15]};
    }
}

void append_path(std::string& out, std::string_view path) {
    for (;;) {
        const std::size_t end = path.find('.');
        out += '.';
        append_token(out, path.substr(0, end));
        if (end == std::string_view::npos)
            return;
        path.remove_prefix(end + 1);
    }
}

std::string head_of(std::string_view realm, std::string_view kind, std::string_view channel) {
    std::string head(prefix);
    for (const auto& name : {realm, kind, channel}) {
        head += '.';
        append_token(head, name);
    }
    return head;
}

std::string required_length(std::string subject, std::string_view path) {
    if (subject.size() > longest_subject)
        throw exceptions::error("The path '" + std::string(path) + "' is too long to cross: " +
                                std::to_string(subject.size()) + " bytes as a subject, and " +
                                std::to_string(longest_subject) + " at most.");
    return subject;
}

// Takes any hexadecimal form; read_subject finds out whether it is the right one.
std::string read_token(std::string_view token) {
    std::string name;
    for (std::size_t i = 0; i < token.size(); ++i) {
        if (token[i] == '=' && i + 2 < token.size()) {
            const auto high = digits.find(token[i + 1]) & 15;
            const auto low = digits.find(token[i + 2]) & 15;
            name += static_cast<char>(high * 16 + low);
            i += 2;
        } else if (token[i] != '=') {
            name += token[i];
        }
    }
    return name;
}

std::string take_name(std::string_view& rest) {
    const std::size_t end = rest.find('.');
    std::string name = read_token(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return name;
}

} // namespace

std::string token_of(std::string_view name) {
    std::string token;
    append_token(token, name);
    return token;
}

std::string subject_of(std::string_view realm, std::string_view kind, std::string_view channel,
                       std::string_view path) {
    std::string subject = head_of(realm, kind, channel);
    append_path(subject, path);
    return required_length(std::move(subject), path);
}

std::string subject_of_pattern(std::string_view realm, std::string_view kind,
                               std::string_view channel, std::string_view pattern) {
    if (has_misplaced_wildcard(pattern))
        throw exceptions::error("'" + std::string(pattern) +
                                "' has a '*' elsewhere than as the last name.");
    if (pattern.empty() || pattern.back() != '*')
        return subject_of(realm, kind, channel, pattern);
    std::string subject = head_of(realm, kind, channel);
    if (pattern.size() > 1)
        append_path(subject, pattern.substr(0, pattern.size() - 2));
    return required_length(subject + ".>", pattern);
}

decoded_subject read_subject(std::string_view subject) {
    std::string_view rest = subject;
    decoded_subject read;
    const std::string first = take_name(rest);
    read.realm = take_name(rest);
    read.kind = take_name(rest);
    read.channel = take_name(rest);
    read.path = take_name(rest);
    while (!rest.empty())
        read.path += '.' + take_name(rest);
    // Each path has one subject, so whatever else was read out of it is another's.
    std::string again = head_of(read.realm, read.kind, read.channel);
    append_path(again, read.path);
    if (again != subject || first != prefix)
        throw exceptions::error("'" + std::string(subject) + "' is no subject of a bridge.");
    return read;
}

bool has_misplaced_wildcard(std::string_view pattern) {
    const std::size_t first = pattern.find('*');
    if (first == std::string_view::npos)
        return false;
    return first + 1 != pattern.size() || (first > 0 && pattern[first - 1] != '.');
}

bool reaches(std::string_view pattern, std::string_view path) {
    if (pattern.empty() || pattern.back() != '*')
        return pattern == path;
    // "a." and more: also "a." itself, whose last name is the empty one.
    return path.starts_with(pattern.substr(0, pattern.size() - 1));
}

bool overlap(std::string_view pattern, std::string_view other) {
    return reaches(pattern, other) || reaches(other, pattern);
}

} // namespace zel::event_routing::nats
