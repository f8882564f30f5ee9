// The broadcasts of a service that have begun and not ended, and inside which handler each
// of them is.
//
// A broadcast does not count its calls in the handlers: threads that broadcast the same would
// write the same words. It announces in its own memory inside which handler it is; a
// removal, which is rare, looks at all broadcasts that are under way.
//
// Whoever owns the object guards it.
#pragma once

#include "framework/event_routing/src/event_routing/events/remembered_lists.h"

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <thread>

namespace zel::event_routing::impl {

/// One broadcast, on the stack of its thread. The text must outlive it.
class broadcast_under_way {
public:
    using registered_handler = event_routing_node::registered_handler;

    explicit broadcast_under_way(const std::string& paths) noexcept : paths_(paths) {}
    broadcast_under_way(const broadcast_under_way&) = delete;
    broadcast_under_way& operator=(const broadcast_under_way&) = delete;

    const text_key& paths() const noexcept { return paths_; }

    /// Null until one was recalled or made.
    const remembered_list* list() const noexcept { return own_ ? own_.get() : borrowed_; }

private:
    friend class broadcasts_under_way;
    friend class broadcast_records;
    friend class announced_call;

    const text_key paths_;
    // Release, so that whoever finds the broadcast outside of a handler may destroy what it
    // has used there. The barriers between announcing and looking do the rest.
    std::atomic<const registered_handler*> inside_{nullptr};

    // Changed by its own thread, and all of them under the guard.
    const remembered_list* borrowed_ = nullptr;
    std::shared_ptr<const remembered_list> own_;
    std::thread::id thread_;
    bool is_use_counted_ = false; // by a removal, in the handler that it is inside of

    // Its neighbours in the row of all, which others change too: the next one, and where the
    // one before has the pointer to this one; null while it stands in no row.
    broadcast_under_way* next_ = nullptr;
    broadcast_under_way** link_to_this_ = nullptr;
};

class broadcasts_under_way {
public:
    using registered_handler = broadcast_under_way::registered_handler;

    void enter(broadcast_under_way& begun) noexcept {
        begun.next_ = first_;
        begun.link_to_this_ = &first_;
        if (first_)
            first_->link_to_this_ = &begun.next_;
        first_ = &begun;
    }

    /// Nothing for one that has not entered.
    void leave(broadcast_under_way& ended) noexcept {
        if (!ended.link_to_this_)
            return;
        *ended.link_to_this_ = ended.next_;
        if (ended.next_)
            ended.next_->link_to_this_ = ended.link_to_this_;
    }

    /// The lists of broadcasts on other threads. False when there are more than fit.
    bool find_lists_of_others(std::span<std::shared_ptr<const match_list>> lists) const;

    /// Whether one of the calling thread is inside of the handler.
    bool is_inside(const registered_handler& handler) const noexcept;

    /// Counts, in the handler, the broadcasts that are inside of it; each ends its use itself.
    void count_uses(registered_handler& removed) noexcept;

private:
    broadcast_under_way* first_ = nullptr;
};

} // namespace zel::event_routing::impl
