// The tree in which a routing service keeps its handlers.
//
// Paths are split at "."; every subnode, the empty one too, names a child. A
// handler for `a.b` stands in `handlers` of the node a.b, one for `a.b.*` in its
// `wildcard_handlers`. Nodes are made by registrations and stay as long as the
// tree. The tree has no lock of its own: the service holds its routing lock
// exclusively to insert and remove, shared to collect.
//
// What collecting copies of a handler is one reference to its record. A record
// does not keep the callable alive (retirable.h), so a collected handler may be
// removed at any time.
#pragma once

#include "framework/event_routing/src/event_routing/routing/child_table.h"
#include "framework/event_routing/src/event_routing/routing/retirable.h"
#include "framework/module_interface/type_name.h"
#include "framework/text/split_string.h"

#include <algorithm>
#include <cstdint>
#include <list>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel::event_routing::impl {

/// The subnode alone for an empty prefix, else prefix + "." + subnode.
std::string join_path(std::string prefix, std::string_view subnode);

/// A registration path taken apart. Throws exceptions::error for a misplaced "*".
struct registration_path {
    explicit registration_path(std::string_view path);

    bool exact;                 ///< false: ends in the subnode "*"
    bool at_root;               ///< the path "*" alone
    std::string_view node_path; ///< of the node that holds the handler, unless at the root
};

template <class Function, class AdditionalData>
class RoutingMapNode {
public:
    /// What goes when the handler goes, however long its record is held.
    struct handler_body {
        Function function;
        AdditionalData additional_data;
    };

    /// Before the body, whose uses are described by them.
    struct handler_texts {
        const std::string path;
        const std::string description;
    };

    /// A handler as broadcasts and requests see it; immutable but for its end.
    struct registered_handler : handler_texts, retirable<handler_body> {
        registered_handler(handler_body body, handler_texts texts, const callable_code& code)
            : handler_texts(std::move(texts)), retirable<handler_body>(std::move(body), code,
                                                                       this->path,
                                                                       this->description) {}
    };

    struct function_container_item {
        std::shared_ptr<registered_handler> record;
    };
    using item_list = std::list<function_container_item>;

    /// Names an item until it is removed.
    using registration = std::pair<item_list*, typename item_list::iterator>;

    struct collected_handler {
        std::shared_ptr<registered_handler> handler;
        std::int32_t level; ///< subnodes of the registration, the "*" not counted
    };

    /// Usually lives in a buffer on the stack of whoever collects.
    using collected_handlers = std::pmr::vector<collected_handler>;

    RoutingMapNode() = default;
    RoutingMapNode(const RoutingMapNode&) = delete;
    RoutingMapNode& operator=(const RoutingMapNode&) = delete;
    ~RoutingMapNode();

    static function_container_item make_item(Function function, AdditionalData additional_data,
                                             std::string description, std::string path = {},
                                             const callable_code& code = {});

    /// Puts the item behind the others of its path.
    registration InsertHandler(const registration_path& target,
                               const function_container_item& item);

    /// Fills `found`, empty before, with the handlers that a routed path reaches:
    /// from the most specific registration to the least, within a level in
    /// registration order.
    void CollectHandlers(std::string_view path, collected_handlers& found) const;

    /// Path and description of every handler, children in byte order.
    std::vector<std::pair<std::string, std::string>> CollectAllHandlers() const;

    /// Unlinks an item and hands it out.
    static function_container_item RemoveHandler(registration position);

private:
    using child_entry = typename child_table<RoutingMapNode>::child;

    item_list handlers_;
    item_list wildcard_handlers_;
    child_table<RoutingMapNode> children_;
};

template <class Function, class AdditionalData>
RoutingMapNode<Function, AdditionalData>::~RoutingMapNode() {
    // A path may have a million subnodes; destroying them must not recurse.
    std::unique_ptr<child_entry> doomed;
    children_.release_to(doomed);
    while (doomed) {
        const auto child = std::move(doomed);
        doomed = std::move(child->next);
        child->node.children_.release_to(doomed);
    }
}

template <class Function, class AdditionalData>
auto RoutingMapNode<Function, AdditionalData>::make_item(Function function,
                                                         AdditionalData additional_data,
                                                         std::string description, std::string path,
                                                         const callable_code& code)
    -> function_container_item {
    return {std::make_shared<registered_handler>(
        handler_body{std::move(function), std::move(additional_data)},
        handler_texts{std::move(path), std::move(description)}, code)};
}

template <class Function, class AdditionalData>
auto RoutingMapNode<Function, AdditionalData>::InsertHandler(const registration_path& target,
                                                             const function_container_item& item)
    -> registration {
    RoutingMapNode* node = this;
    if (!target.at_root)
        text::for_each_piece(target.node_path, ".", [&](std::string_view subnode) {
            node = &node->children_.find_or_add(subnode);
            return true;
        });
    item_list& list = target.exact ? node->handlers_ : node->wildcard_handlers_;
    list.push_back(item);
    return {&list, std::prev(list.end())};
}

template <class Function, class AdditionalData>
void RoutingMapNode<Function, AdditionalData>::CollectHandlers(std::string_view path,
                                                               collected_handlers& found) const {
    // The walk meets the least specific handlers first, so everything is gathered
    // back to front and turned round in the end.
    constexpr std::size_t usual = 8; // spares the first, small steps of growing
    const auto gather = [&](const item_list& list, std::int32_t level) {
        if (!list.empty() && found.capacity() == 0)
            found.reserve(usual);
        for (auto item = list.rbegin(); item != list.rend(); ++item)
            found.push_back({item->record, level});
    };

    const RoutingMapNode* node = this;
    std::int32_t level = 0;
    text::for_each_piece(path, ".", [&](std::string_view subnode) {
        gather(node->wildcard_handlers_, level);
        node = node->children_.find(subnode);
        ++level;
        return node != nullptr;
    });
    if (node)
        gather(node->handlers_, level);
    std::reverse(found.begin(), found.end());
}

template <class Function, class AdditionalData>
auto RoutingMapNode<Function, AdditionalData>::CollectAllHandlers() const
    -> std::vector<std::pair<std::string, std::string>> {
    struct visit {
        std::vector<const child_entry*> children;
        std::size_t next = 0;
        std::size_t prefix_length;
    };
    std::vector<std::pair<std::string, std::string>> all;
    std::string prefix;
    std::vector<visit> open; // instead of recursion: paths may be very deep

    const auto enter = [&](const RoutingMapNode& node, std::size_t prefix_length) {
        for (const auto& item : node.handlers_)
            all.emplace_back(prefix, item.record->description);
        for (const auto& item : node.wildcard_handlers_)
            all.emplace_back(join_path(prefix, "*"), item.record->description);
        auto sorted = node.children_.all();
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto* a, const auto* b) { return a->name < b->name; });
        open.push_back({std::move(sorted), 0, prefix_length});
    };
    enter(*this, 0);
    while (!open.empty()) {
        visit& current = open.back();
        if (current.next == current.children.size()) {
            prefix.resize(current.prefix_length);
            open.pop_back();
            continue;
        }
        const child_entry& child = *current.children[current.next++];
        const std::size_t length = prefix.size();
        prefix = join_path(std::move(prefix), child.name);
        enter(child.node, length);
    }
    return all;
}

template <class Function, class AdditionalData>
auto RoutingMapNode<Function, AdditionalData>::RemoveHandler(registration position)
    -> function_container_item {
    const auto [list, item] = position;
    function_container_item removed = std::move(*item);
    list->erase(item);
    return removed;
}

} // namespace zel::event_routing::impl

template <class Function, class AdditionalData>
struct zel::declared_type_name<zel::event_routing::impl::RoutingMapNode<Function, AdditionalData>> {
    static std::string text() {
        return template_type_name("struct zel::event_routing::impl::RoutingMapNode",
                                  {type_name<Function>(), type_name<AdditionalData>()});
    }
};
