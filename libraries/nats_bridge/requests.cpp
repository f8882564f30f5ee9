#include "libraries/nats_bridge/requests.h"

#include "libraries/nats_bridge/subject.h"

namespace zel::event_routing::nats {

requests::requests(const bridge_options& options, const std::string& origin, IModule& module,
                   platform::event& changed, task_runner& tasks, counters& counts)
    : options_(options), origin_(origin), changed_(changed), tasks_(tasks),
      others_(subject_of(options.realm, "i", options.host, token_of(origin)), network_, counts),
      clocks_(options.realm, others_),
      import_(options, origin, module, network_, tasks, clocks_, counts),
      hosts_(options, origin, network_, changed), calls_(options, origin, module, others_, counts),
      request_export_(options, module, calls_, hosts_),
      snowball_export_(options, module, calls_, hosts_, counts),
      claims_(options, origin, network_, others_, changed,
              [this](const std::string& pattern) { import_.serve(pattern); }),
      network_(options, origin, sending::at_once, [this](bool has_come) {
          if (has_come) {
              claims_.connection_came();
              hosts_.connection_came();
          } else {
              others_.connection_went();
          }
          changed_.set();
      }) {}

void requests::begin() {
    others_.begin();
    network_.subscribe(
        peer_clocks::subject(options_.realm, origin_), [this](const received_message& asked) {
            const std::chrono::nanoseconds now = steady_clock::now().time_since_epoch();
            network_.publish(std::string(asked.answer_to),
                             envelope_bytes(clock_envelope{now.count()}));
        });
    for (const auto& served : options_.serve_requests)
        if (served.mode == request_mode::any)
            import_.serve(served.pattern);
        else if (served.mode == request_mode::unique)
            import_.serve_alone(served.pattern);
    for (const auto& served : options_.serve_snowballs)
        import_.serve_snowballs(served.pattern);
    claims_.begin();
    hosts_.begin(); // whoever hears of this host may ask it
    request_export_.begin();
    snowball_export_.begin();
}

bool requests::is_ready(platform::milliseconds limit) {
    if (!claims_.are_settled())
        return false;
    if (const std::string refused = claims_.refusals(); !refused.empty())
        throw exceptions::error(refused);
    return hosts_.has_all(options_.expected_hosts) && network_.flush(limit);
}

void requests::end(platform::milliseconds limit) {
    const auto end = steady_clock::now() + limit;
    const auto left = [&] {
        return std::max(std::chrono::ceil<platform::milliseconds>(end - steady_clock::now()),
                        platform::milliseconds(0));
    };
    request_export_.end(left());
    snowball_export_.end(left());
    others_.end();
    claims_.end();
    hosts_.end();
    network_.stop_receiving(left());
    tasks_.wait_until_idle(left()); // they answer
}

} // namespace zel::event_routing::nats
