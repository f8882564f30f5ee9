// Keeping the cancellation of a thread out of code that must not be unwound.
#pragma once

#include <platform/export.h>

namespace zel::platform {

/// While the object lives, the calling thread is not cancelled; a request stays
/// pending. For destructors, end actions and reports, which call foreign code
/// that may contain cancellation points.
class ZEL_EXPORT no_cancellation {
public:
    no_cancellation() noexcept;
    ~no_cancellation();
    no_cancellation(const no_cancellation&) = delete;
    no_cancellation& operator=(const no_cancellation&) = delete;

private:
    int previous_ = 0;
};

} // namespace zel::platform
