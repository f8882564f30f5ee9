#include "benchmarks/targets.h"

namespace zel::benchmarks {

namespace {

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
    {"shared hold taken and given back / std::mutex pair", //
     "shared_hold/real_time/threads:1", "std_mutex_pair/real_time", 2.5},
    {"task made, submitted, run and ended / asio::post", //
     "tasks/submitters:1/real_time", "asio_post/submitters:1/real_time", 2.0},
    {"the same number of tasks from two threads / from one", //
     "tasks/submitters:2/real_time", "tasks/submitters:1/real_time", 1.0},
    {"task in a queue with one runner / asio::strand", //
     "queued_tasks/real_time", "asio_strand/real_time", 1 / 0.7},
    {"1 000 000 pending tasks ended / 100 000", //
     "pending_tasks_end/tasks:1000000/real_time", "pending_tasks_end/tasks:100000/real_time", 12.0},
    {"bytes of a pending task", //
     "pending_task_memory/real_time:bytes", "", 768.0},
};

} // namespace

std::vector<target> targets() {
    return own_targets;
}

} // namespace zel::benchmarks
