// Where each component is made. The host knows no more of them than this.
//
// The routing service must outlive what these functions return.
#pragma once

#include "examples/directory_index/component.h"

namespace directory_index {

/// Shows on a terminal that a long walk goes on.
std::unique_ptr<component> make_progress(IEventRouting& events);
/// Files, bytes and lines by extension.
std::unique_ptr<component> make_extension_table(IEventRouting& events);
/// The ten largest files.
std::unique_ptr<component> make_largest_files(IEventRouting& events);
/// How much there is in all.
std::unique_ptr<component> make_totals(IEventRouting& events);
/// Counts the lines of text files and broadcasts each count.
std::unique_ptr<component> make_line_counter(IEventRouting& events);
/// What could not be read, and why.
std::unique_ptr<component> make_unreadable_files(IEventRouting& events);

} // namespace directory_index
