#include "benchmarks/targets.h"

namespace zel::benchmarks {

namespace {

// Broadcasts of this library against those of a bus on Boost.Signals2.
struct peer_target {
    const char* what;
    const char* measured;
    double untracked;
    double tracked;
};

constexpr peer_target peer_targets[] = {
    {"1 handler", "one_path/handlers:1", 0.25, 0.16},
    {"4 handlers on 4 levels", "four_levels/handlers:4", 0.15, 0.08},
    {"100 handlers on one path", "one_path/handlers:100", 0.36, 0.09},
    {"100 handlers on 4 levels", "four_levels/handlers:100", 0.36, 0.09},
    {"hot path among 1 000", "hot_path/registered:1000", 0.4, 0.27},
    {"hot path among 10 000", "hot_path/registered:10000", 0.4, 0.27},
    {"hot path among 100 000", "hot_path/registered:100000", 0.4, 0.27},
    {"cycling through 1 000 paths", "cycling/registered:1000", 0.3, 0.3},
    {"cycling through 10 000 paths", "cycling/registered:10000", 0.3, 0.3},
    {"cycling through 100 000 paths", "cycling/registered:100000", 0.9, 0.85},
    {"2 threads, 1 handler", "two_threads/handlers:1/real_time/threads:2", 1.0, 0.4},
    {"2 threads, 100 handlers", "two_threads/handlers:100/real_time/threads:2", 0.3, 0.08},
    {"10 broadcasts and a drop, 4 handlers", "churn", 0.3, 0.16},
};

target against(const std::string& bus, const peer_target& with, double limit) {
    return {std::string(with.what) + " / Signals2 " + bus,
            std::string("peers/event_routing/") + with.measured,
            "peers/signals2_" + bus + "/" + with.measured, limit};
}

const std::vector<target> own_targets = {
    {"collect 4 handlers on 4 levels / find of the path in 1 000", //
     "collect/registered:1000", "unordered_map_find/registered:1000", 8.0},
    {"collect 4 handlers on 4 levels / find of the path in 10 000", //
     "collect/registered:10000", "unordered_map_find/registered:10000", 8.0},
    {"collect 4 handlers on 4 levels / find of the path in 100 000", //
     "collect/registered:100000", "unordered_map_find/registered:100000", 8.0},
    {"collect among 100 000 / among 1 000", //
     "collect/registered:100000", "collect/registered:1000", 1.3},
    {"value of a payload asked for again / one atomic load and a call", //
     "payload_value_again", "atomic_load_and_call", 1.25},
    {"data type found by name among 1 000 / find in an unordered_map", //
     "data_type_find", "unordered_map_find_type", 5.0},
    {"1 000 records made bytes / cereal", //
     "peers/event_routing/encode", "peers/cereal/encode", 1.0},
    {"1 000 records made of bytes / cereal", //
     "peers/event_routing/decode", "peers/cereal/decode", 1.0},
    {"1 000 records made bytes / Boost.Serialization", //
     "peers/event_routing/encode", "peers/boost_serialization/encode", 1 / 1.5},
    {"1 000 records made of bytes / Boost.Serialization", //
     "peers/event_routing/decode", "peers/boost_serialization/decode", 1 / 1.5},
    {"hot path among 10 000 / among 1 000", //
     "peers/event_routing/hot_path/registered:10000",
     "peers/event_routing/hot_path/registered:1000", 1.1},
    {"hot path among 100 000 / among 1 000", //
     "peers/event_routing/hot_path/registered:100000",
     "peers/event_routing/hot_path/registered:1000", 1.1},
    {"broadcast with one monitor, clocks standing still / without", //
     "peers/event_routing/with_monitor/handlers:1", "peers/event_routing/one_path/handlers:1", 2.5},
    {"asynchronous broadcast, end to end / asio::post", //
     "broadcast_asynchronous/real_time", "asio_post_event/real_time", 1.0},
    {"request to one of 10 000 / broadcast to one of 10 000", //
     "peers/event_routing/request/declining:0", "peers/event_routing/hot_path/registered:10000",
     1.2},
    {"request that one handler declines first / without", //
     "peers/event_routing/request/declining:1", "peers/event_routing/request/declining:0", 1.5},
    {"request that ten handlers decline first / without", //
     "peers/event_routing/request/declining:10", "peers/event_routing/request/declining:0", 3.5},
    {"snowball over 4 levels / broadcast of the same shape", //
     "peers/event_routing/snowball", "peers/event_routing/four_levels/handlers:4", 1.1},
    {"bytes of a registered handler among 100 000", //
     "churn_among_many/registered:100000/real_time:bytes", "", 1000.0},
    {"ns to register and drop one of 100 000 during broadcasts", //
     "churn_among_many/registered:100000/real_time", "", 2000.0},
    // The time counts for a message of either thread, so it halves where they do not disturb
    // each other.
    {"2 threads on one path, 1 handler / 1 thread", //
     "scaling/one_path/handlers:1/real_time/threads:2",
     "scaling/one_path/handlers:1/real_time/threads:1", 1.15 / 2},
    {"2 threads on one path, 100 handlers / 1 thread", //
     "scaling/one_path/handlers:100/real_time/threads:2",
     "scaling/one_path/handlers:100/real_time/threads:1", 1.15 / 2},
    {"2 threads on a path each / 1 thread", //
     "scaling/a_path_each/real_time/threads:2", "scaling/a_path_each/real_time/threads:1",
     1.10 / 2},
    {"2 threads that request / 1 thread", //
     "scaling/request/real_time/threads:2", "scaling/request/real_time/threads:1", 1.15 / 2},
    {"2 threads that send snowballs / 1 thread", //
     "scaling/snowball/real_time/threads:2", "scaling/snowball/real_time/threads:1", 1.15 / 2},
    {"shared hold taken and given back / std::mutex pair", //
     "shared_hold/real_time/threads:1", "std_mutex_pair/real_time", 2.5},
    {"task made, submitted, run and ended / asio::post", //
     "tasks/submitters:1/real_time", "asio_post/submitters:1/real_time", 1.0},
    {"the same number of tasks from two threads / from one", //
     "tasks/submitters:2/real_time", "tasks/submitters:1/real_time", 0.8},
    {"task in a queue with one runner / asio::strand", //
     "queued_tasks/real_time", "asio_strand/real_time", 1.0},
    {"task submitted and waited for / two thread switches", //
     "submit_and_wait/real_time", "two_thread_switches/real_time", 1.3},
    {"1 000 000 pending tasks ended / 100 000", //
     "pending_tasks_end/tasks:1000000/real_time", "pending_tasks_end/tasks:100000/real_time", 11.0},
    {"bytes of a pending task", //
     "pending_task_memory/real_time:bytes", "", 512.0},
};

} // namespace

std::vector<target> targets() {
    auto all = own_targets;
    for (const auto& with : peer_targets) {
        all.push_back(against("untracked", with, with.untracked));
        all.push_back(against("tracked", with, with.tracked));
    }
    return all;
}

} // namespace zel::benchmarks
