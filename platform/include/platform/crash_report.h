// Naming the libraries in which a process crashes.
//
// A program that loads libraries of others and dies of one of them should say of which. A
// crash is a fault of an instruction or an abort, on any thread. It is told of in one line
// on standard error, the innermost library first:
//
//     inspect: crashed (Segmentation fault) in /opt/libspelling.so, called by /opt/libtext.so
//
// The process then ends as it would have without.
#pragma once

#include <platform/export.h>

namespace zel::platform {

/// From now on, for as long as the process lives. `program` begins the line and must stay.
/// A stack that overflows is told of only on the calling thread: others have no second stack
/// to tell it on. What crashes by calling an address that is no code leaves no trace of its
/// callers.
ZEL_EXPORT void report_crashes(const char* program) noexcept;

} // namespace zel::platform
