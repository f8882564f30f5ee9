#include "tools/inspect/handler_tree.h"

#include "framework/serialization/binary_streams.h"
#include "framework/serialization/json_values.h"
#include "tools/inspect/outline.h"
#include "tools/inspect/printable.h"

#include <platform/child_process.h>

#include <fmt/format.h>

#include <system_error>

namespace inspect {

namespace {

using zel::exceptions::error;

std::string label(const row& shown) {
    const std::string text = printable(shown.text);
    if (shown.is_handler)
        return "[" + text + "]";
    return text.empty() ? "(empty)" : text;
}

std::string quoted(const std::string& text) {
    std::string shown = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            shown += '\\';
        shown += c;
        if (c == '&') // Graphviz decodes entities
            shown += "amp;";
    }
    return shown + '"';
}

// Beyond this the document could not be written; each subnode is an object in an array.
constexpr std::size_t most_subnodes = zel::serialization::deepest_nesting / 2 - 4;

Json::Value subnodes_as_json(const handler_texts& handlers) {
    Json::Value root(Json::objectValue);
    root["subnodes"] = Json::Value(Json::arrayValue);
    std::vector<Json::Value*> open{&root}; // elements stay where they are while others come
    for (const row& r : outline(handlers)) {
        if (r.depth > most_subnodes)
            throw error(fmt::format("The path of a handler has more than {} subnodes, too many "
                                    "for a JSON document.",
                                    most_subnodes));
        open.resize(r.depth + 1);
        Json::Value& parent = *open.back();
        const Json::Value text = zel::serialization::json_values::string(r.text, {});
        if (r.is_handler) {
            parent["handlers"].append(text);
            continue;
        }
        Json::Value subnode(Json::objectValue);
        subnode["name"] = text;
        subnode["handlers"] = Json::Value(Json::arrayValue);
        subnode["subnodes"] = Json::Value(Json::arrayValue);
        open.push_back(&parent["subnodes"].append(std::move(subnode)));
    }
    return root["subnodes"];
}

} // namespace

std::string tree_as_text(const std::vector<service>& services) {
    std::string text;
    for (const service& shown : services) {
        text += title_of(shown) + '\n';
        if (shown.handlers.empty())
            text += "    (no handlers)\n";
        std::vector<bool> ended; // whether nothing more comes below that parent
        for (const row& r : outline(shown.handlers)) {
            ended.resize(r.depth);
            for (const bool none_left : ended)
                text += none_left ? "    " : "│   ";
            text += (r.is_last ? "└── " : "├── ") + label(r) + '\n';
            ended.push_back(r.is_last);
        }
    }
    return text;
}

Json::Value tree_as_json(const std::vector<service>& services) {
    Json::Value all(Json::arrayValue);
    for (const service& shown : services) {
        Json::Value one(Json::objectValue);
        one["type"] = name_of(shown.type);
        if (shown.channel)
            one["channelId"] = zel::serialization::json_values::string(*shown.channel, {});
        one["subnodes"] = subnodes_as_json(shown.handlers);
        all.append(std::move(one));
    }
    return all;
}

std::string tree_as_dot(const std::vector<service>& services) {
    std::string graph = "digraph handlers {\n"
                        "    rankdir=LR;\n"
                        "    node [shape=box, fontname=\"sans-serif\"];\n";
    for (std::size_t s = 0; s < services.size(); ++s) {
        graph +=
            fmt::format("    s{} [label={}, shape=folder];\n", s, quoted(title_of(services[s])));
        const auto rows = outline(services[s].handlers);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const row& r = rows[i];
            const std::string text = printable(r.text);
            const std::string parent = r.parent == row::no_parent
                                           ? fmt::format("s{}", s)
                                           : fmt::format("s{}_{}", s, r.parent);
            graph += fmt::format(
                "    s{0}_{1} [label={2}{3}];\n    {4} -> s{0}_{1};\n", s, i,
                quoted(r.is_handler ? text : label(r)),
                r.is_handler ? ", shape=note, style=filled, fillcolor=lightyellow" : "", parent);
        }
    }
    return graph + "}\n";
}

std::string tree_as_svg(const std::vector<service>& services) {
    const std::vector<std::string> arguments{"-Tsvg"};
    try {
        auto drawn = zel::platform::run_program("dot", arguments, tree_as_dot(services));
        if (drawn.exit_code != 0)
            throw error(fmt::format("The program 'dot' could not draw the graph and ended with {}.",
                                    drawn.exit_code));
        return drawn.output;
    } catch (const std::system_error& failure) {
        if (failure.code() != std::errc::no_such_file_or_directory)
            throw error(fmt::format("The program 'dot' could not be run: {}", failure.what()));
        throw error("SVG is drawn by the program 'dot' of Graphviz, which is not installed; "
                    "--format dot gives the graph itself.");
    }
}

} // namespace inspect
