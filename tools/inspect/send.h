// Sending one message to the components.
#pragma once

#include "tools/inspect/command_line.h"
#include "tools/inspect/host.h"

#include <string>

namespace inspect {

struct sent {
    std::string answer;  ///< a JSON document
    std::string failure; ///< what the message was answered with instead; empty if it was not
};

/// Throws usage_error for a payload of a type that no component has, and what sending
/// throws: that may be code of a component.
sent send_message(const host& components, const command_line& asked);

} // namespace inspect
