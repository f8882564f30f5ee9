// Showing the traffic between the components while it happens.
#pragma once

#include "tools/inspect/command_line.h"
#include "tools/inspect/host.h"

#include <platform/event.h>

namespace inspect {

/// Reports until the time is over or the event is set.
void watch_traffic(const host& components, const command_line& asked,
                   zel::platform::event& interrupt);

} // namespace inspect
