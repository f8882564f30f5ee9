// One report of the traffic, as text or as a JSON document.
#pragma once

#include "tools/inspect/traffic.h"

#include <cstddef>
#include <json/value.h>
#include <map>
#include <string>
#include <vector>

namespace inspect {

struct service_report {
    std::string service;
    message_counts all;    ///< since the beginning
    double per_second = 0; ///< since the last report
};

struct report {
    double seconds = 0; ///< since the beginning
    std::vector<service_report> services;
    std::vector<handler_times> slowest;
    std::vector<path_count> busiest;
};

/// Makes reports of one traffic; remembers what it reported last.
class reporter {
public:
    reporter(const traffic& counts, std::size_t rows) : counts_(counts), rows_(rows) {}

    /// `seconds` since the beginning; larger at each call.
    report next(double seconds);

private:
    const traffic& counts_;
    std::size_t rows_;
    double last_ = 0;
    std::map<std::string, message_counts> reported_;
};

/// One line of rates, for each service that has sent anything.
std::string rates_as_text(const report& shown);
/// The slowest handlers and the busiest paths.
std::string tables_as_text(const report& shown);
Json::Value report_as_json(const report& shown);

} // namespace inspect
