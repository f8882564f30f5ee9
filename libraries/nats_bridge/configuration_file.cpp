#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_place.h"
#include "framework/serialization/json_text.h"
#include "libraries/nats_bridge/configuration.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace zel::event_routing::nats {

namespace {

struct close_file {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

std::string content_of(const std::string& file) {
    const std::unique_ptr<std::FILE, close_file> stream(std::fopen(file.c_str(), "rb"));
    std::string content;
    std::array<char, 4096> piece{};
    while (stream && std::feof(stream.get()) == 0 && std::ferror(stream.get()) == 0)
        content.append(piece.data(), std::fread(piece.data(), 1, piece.size(), stream.get()));
    if (!stream || std::ferror(stream.get()) != 0)
        throw exceptions::error("it cannot be read: " + std::generic_category().message(errno));
    return content;
}

bridge_options options_in(const std::string& content) {
    const Json::Value document = serialization::json_from_text(content);
    try {
        return options_of(document);
    } catch (const serialization::conversion_error& failure) {
        const std::string& place = failure.place();
        throw exceptions::error((place.empty() ? "" : "Option " + place + ": ") + failure.what());
    }
}

} // namespace

bridge_options read_configuration(const std::string& file) {
    try {
        bridge_options options = options_in(content_of(file));
        check(options);
        return options;
    } catch (const exceptions::error& failure) {
        throw exceptions::error("The configuration " + file + ": " + failure.what());
    }
}

} // namespace zel::event_routing::nats
