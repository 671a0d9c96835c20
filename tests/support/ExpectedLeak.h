#pragma once

#include "Platform/Sanitizer.h"

#if KX_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace kx::test {

/// What this thread allocates while it lives may stay behind: the leak check passes over it.
class ExpectedLeak {
public:
#if KX_ADDRESS_SANITIZER
    ExpectedLeak() {
        __lsan_disable();
    }
    ~ExpectedLeak() {
        __lsan_enable();
    }
#else
    ExpectedLeak() {}
    ~ExpectedLeak() {}
#endif
    ExpectedLeak(const ExpectedLeak&) = delete;
    ExpectedLeak& operator=(const ExpectedLeak&) = delete;
};

}  // namespace kx::test
