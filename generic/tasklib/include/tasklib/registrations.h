// The cookies that one owner keeps, released together.
//
// Any thread. A cookie is released outside of the lock, because its release may
// run code that comes back here.
#pragma once

#include <tasklib/keep_registered.h>

#include <platform/critical_section.h>

#include <memory>
#include <utility>
#include <vector>

namespace zel::tasklib {

class registrations {
public:
    registrations() = default;
    ~registrations() { clear(); }
    registrations(const registrations&) = delete;
    registrations& operator=(const registrations&) = delete;

    /// A null cookie is not kept.
    void add(std::shared_ptr<keep_registered> cookie) {
        if (!cookie)
            return;
        platform::scoped_lock inside(guard_);
        cookies_.push_back(std::move(cookie));
    }

    /// Releases the cookies one by one, the latest first.
    void clear() {
        while (take_last()) {
        }
    }

private:
    std::shared_ptr<keep_registered> take_last() {
        platform::scoped_lock inside(guard_);
        if (cookies_.empty())
            return nullptr;
        auto last = std::move(cookies_.back());
        cookies_.pop_back();
        return last;
    }

    platform::critical_section guard_;
    std::vector<std::shared_ptr<keep_registered>> cookies_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::tasklib
