// What is registered under a name, for as long as its cookie lives.
//
// Any thread. Several libraries may register the same name; the first of them counts,
// and when it goes the next one takes its place. What was found is called without a lock:
// a library must not be unloaded while others make payloads of a type it registered first.
#pragma once

#include <platform/critical_section.h>
#include <tasklib/keep_registered.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::serialization {

/// Cookies of this library that others hold.
inline constinit std::atomic<int> live_cookies{0}; // relaxed: a count and nothing else

template <class Entry>
class name_registry : public std::enable_shared_from_this<name_registry<Entry>> {
public:
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered> add(std::string_view name,
                                                                Entry entry) {
        auto added = std::make_shared<const Entry>(std::move(entry));
        auto result = std::make_shared<cookie>(this->shared_from_this(), std::string(name), added);
        platform::scoped_lock inside(guard_);
        entries_[std::string(name)].push_back(std::move(added));
        return result;
    }

    /// Null when nothing is registered under the name.
    std::shared_ptr<const Entry> find(std::string_view name) const {
        platform::scoped_lock inside(guard_);
        const auto found = entries_.find(name);
        // An entry is empty if there was no memory to fill it; it stays so until its cookie
        // goes.
        return found == entries_.end() || found->second.empty() ? nullptr : found->second.front();
    }

private:
    using registered = std::shared_ptr<const Entry>;

    class cookie final : public tasklib::keep_registered {
    public:
        cookie(std::shared_ptr<name_registry> registry, std::string name, registered entry)
            : registry_(std::move(registry)), name_(std::move(name)), entry_(std::move(entry)) {
            live_cookies.fetch_add(1, std::memory_order_relaxed);
        }
        ~cookie() override {
            registry_->remove(name_, entry_);
            live_cookies.fetch_sub(1, std::memory_order_relaxed);
        }

    private:
        std::shared_ptr<name_registry> registry_; // the cookie may outlive the module
        std::string name_;
        registered entry_;
    };

    void remove(const std::string& name, const registered& entry) {
        platform::scoped_lock inside(guard_);
        const auto found = entries_.find(name);
        if (found == entries_.end())
            return; // it was never put in
        std::erase(found->second, entry);
        if (found->second.empty())
            entries_.erase(found);
    }

    // Finds names without making strings of them.
    struct hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const noexcept {
            return std::hash<std::string_view>()(name);
        }
    };

    mutable platform::plain_lock guard_;
    std::unordered_map<std::string, std::vector<registered>, hash, std::equal_to<>>
        entries_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::serialization
