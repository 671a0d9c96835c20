#pragma once

#include "Platform/SystemCalls.h"

#include <atomic>

namespace kx::proof {

/// How the host opens beneath a directory.
enum class Opening {
    withOpenat2,  ///< the kernel keeps it inside
    walking,      ///< the kernel does not know how, as old ones do not: one component after another
};

/// Stands in the table of system calls while it lives: takes openat2 away where it is asked to, and notices calls that
/// can change which names there are.
class WatchedCalls {
public:
    explicit WatchedCalls(Opening opening);
    WatchedCalls(const WatchedCalls&) = delete;
    WatchedCalls& operator=(const WatchedCalls&) = delete;
    ~WatchedCalls();

    /// @return whether there were such calls since it was asked last.
    static bool TakeChanged();

private:
    SystemCalls m_before;
};

}  // namespace kx::proof
