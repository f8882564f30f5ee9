// What is registered under a name, for as long as its cookie lives.
//
// Any thread. Several libraries may register the same name; the first of them counts,
// and when it goes the next one takes its place. What was found is called without a lock:
// it stays, and with it the library that registered it, until whoever found it lets it go.
#pragma once

#include <platform/critical_section.h>
#include <platform/image_use.h>
#include <tasklib/keep_registered.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::serialization {

/// Cookies of this library that others hold.
inline constinit std::atomic<int> live_cookies{0}; // relaxed: a count and nothing else

/// Of one or two callables; `none` where there is no second.
using callable_images = std::array<platform::image_handle, 2>;

template <class Entry>
class name_registry : public std::enable_shared_from_this<name_registry<Entry>> {
public:
    /// The images and the kind are those of the entry's callables.
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    add(std::string_view name, Entry entry, const callable_images& images, const char* kind) {
        auto added = std::make_shared<const counted_entry>(name, std::move(entry), images, kind);
        auto result = std::make_shared<cookie>(this->shared_from_this(), added);
        platform::scoped_lock inside(guard_);
        entries_[added->name].push_back(std::move(added));
        return result;
    }

    /// Null when nothing is registered under the name.
    std::shared_ptr<const Entry> find(std::string_view name) const {
        platform::scoped_lock inside(guard_);
        const auto found = entries_.find(name);
        // An entry is empty if there was no memory to fill it; it stays so until its cookie
        // goes.
        if (found == entries_.end() || found->second.empty())
            return nullptr;
        const registered& first = found->second.front();
        return {first, &first->callables};
    }

private:
    struct counted_entry {
        counted_entry(std::string_view of, Entry entry, const callable_images& images,
                      const char* kind)
            : name(of), use(images[0], kind, name),
              second_use(images[1] == images[0] ? platform::image_handle::none : images[1], kind,
                         name),
              callables(std::move(entry)) {}

        const std::string name;
        const platform::image_use use; // ends after the callables
        const platform::image_use second_use;
        const Entry callables;
    };
    using registered = std::shared_ptr<const counted_entry>;

    class cookie final : public tasklib::keep_registered {
    public:
        cookie(std::shared_ptr<name_registry> registry, registered entry)
            : registry_(std::move(registry)), entry_(std::move(entry)) {
            live_cookies.fetch_add(1, std::memory_order_relaxed);
        }
        ~cookie() override {
            registry_->remove(entry_);
            live_cookies.fetch_sub(1, std::memory_order_relaxed);
        }

    private:
        std::shared_ptr<name_registry> registry_; // the cookie may outlive the module
        registered entry_;
    };

    void remove(const registered& entry) {
        platform::scoped_lock inside(guard_);
        const auto found = entries_.find(entry->name);
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
