// Clang's thread-safety attributes: which lock guards a field, what a function
// does to a lock. They are checked in the Clang build and vanish elsewhere.
#pragma once

#if defined(__clang__)
#define ZEL_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define ZEL_THREAD_ATTRIBUTE(attribute)
#endif

#define ZEL_GUARDED_BY(lock) ZEL_THREAD_ATTRIBUTE(guarded_by(lock))
#define ZEL_REQUIRES(...) ZEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
