// Marks what a shared library offers to others. Everything else stays hidden.
#pragma once

#define ZEL_EXPORT __attribute__((visibility("default")))
