// Showing the traffic between the components while it happens.
#pragma once

#include "tools/inspect/command_line.h"
#include "tools/inspect/host.h"

namespace inspect {

/// Reports until the time is over or
/// somebody interrupts.
void watch_traffic(const host& components, const command_line& asked);

} // namespace inspect
