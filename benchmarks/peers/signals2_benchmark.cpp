// What somebody would build on Boost.Signals2 to have paths, wildcards, counts of
// broadcasts and handlers that may come and go on any thread, also from inside a
// call. Built with care: no allocation to look a path up or to collect signals, no
// lock of its own while handlers run.
#include "benchmarks/peers/bus_cases.h"

#include <boost/container/small_vector.hpp>
#include <boost/signals2/signal.hpp>

#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_map>

namespace zel::benchmarks {

namespace {

// Finds a piece of a path without a copy of it. Not noexcept on purpose: the
// standard library then keeps the hashes instead of computing them again.
struct path_hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view path) const {
        return std::hash<std::string_view>()(path);
    }
};

template <class Value>
using path_map = std::unordered_map<std::string, Value, path_hash, std::equal_to<>>;

enum class tracking {
    off, ///< what a handler refers to may be gone while it is called
    on   ///< a call holds its handler; one that was removed is not called
};

template <tracking Tracking>
class signals2_bus {
    using signal = boost::signals2::signal<void(const std::string&, const event_data&,
                                                const routing_parameters&)>;

public:
    struct token {
        std::shared_ptr<const counting_handler> handler;
        boost::signals2::scoped_connection connection; // ended first
    };

    token subscribe(const std::string& path, counting_handler handler) {
        if constexpr (Tracking == tracking::off) {
            return {nullptr, signal_of(path).connect(handler)};
        } else {
            auto owned = std::make_shared<const counting_handler>(handler);
            typename signal::slot_type slot(
                [called = owned.get()](const std::string& where, const event_data& data,
                                       const routing_parameters& parameters) {
                    (*called)(where, data, parameters);
                });
            slot.track_foreign(owned);
            return {std::move(owned), signal_of(path).connect(slot)};
        }
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        for (signal* const matching : collect(path))
            (*matching)(path, data, parameters);
        std::lock_guard counting(counts_guard_);
        ++counts_[path];
    }

private:
    // Signals are never removed.
    signal& signal_of(const std::string& path) {
        std::lock_guard maps_are_mine(maps_guard_);
        if (path == "*")
            return wildcard_[""];
        if (path.ends_with(".*"))
            return wildcard_[path.substr(0, path.size() - 2)];
        return exact_[path];
    }

    // From the most specific to the least.
    boost::container::small_vector<signal*, 8> collect(std::string_view path) {
        boost::container::small_vector<signal*, 8> found;
        const auto look_up = [&found](path_map<signal>& map, std::string_view key) {
            if (const auto known = map.find(key); known != map.end())
                found.push_back(&known->second);
        };
        std::shared_lock maps_are_stable(maps_guard_);
        look_up(exact_, path);
        for (auto dot = path.rfind('.'); dot != path.npos; dot = path.rfind('.')) {
            path = path.substr(0, dot);
            look_up(wildcard_, path);
        }
        look_up(wildcard_, "");
        return found;
    }

    std::shared_mutex maps_guard_;
    path_map<signal> exact_;
    path_map<signal> wildcard_; // by the path without its ".*"
    std::mutex counts_guard_;
    path_map<std::uint64_t> counts_;
};

[[maybe_unused]] const bool listed =
    compare_bus<signals2_bus<tracking::off>>("signals2_untracked") &&
    compare_bus<signals2_bus<tracking::on>>("signals2_tracked");

} // namespace

} // namespace zel::benchmarks
