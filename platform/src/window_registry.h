// Finds the queue of a window by its handle.
//
// Any thread. Handles are counted up, so a stale one never leads to a later window.
#pragma once

#include "platform/src/message_queue.h"

namespace zel::platform::window_registry {

window_handle add(std::shared_ptr<message_queue> queue);
std::shared_ptr<message_queue> find(window_handle window) noexcept;
void remove(window_handle window) noexcept;

} // namespace zel::platform::window_registry
