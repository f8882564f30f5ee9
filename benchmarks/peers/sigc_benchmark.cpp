#include "benchmarks/peers/bus_cases.h"

#include <sigc++/sigc++.h>

namespace zel::benchmarks {

namespace {

// For one thread only.
class sigc_signal {
public:
    using token = sigc::connection;

    token subscribe(const std::string&, counting_handler handler) {
        return signal_.connect(handler);
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        signal_.emit(path, data, parameters);
    }

private:
    sigc::signal<void(const std::string&, const event_data&, const routing_parameters&)> signal_;
};

[[maybe_unused]] const bool listed = compare_signal<sigc_signal>("sigc");

} // namespace

} // namespace zel::benchmarks
