#pragma once

#include "Files/IO/LoadSave.h"

#include <chrono>

namespace kx {

/// Waits for events, and shows on a terminal's standard error how far the requests are that make the wait a long one.
/// @thread the script's
class Progress {
public:
    Progress();

    /// As LoadSave::NextEvent. What has been shown is gone when it returns.
    bool WaitForEvent(int milliseconds, ASYNC_EVENT* event);

private:
    using Clock = std::chrono::steady_clock;

    void Show();
    void Clear();

    const bool m_enabled;
    bool m_shown = false;
    bool m_busy = false;  // since m_since requests have been in flight at every wait
    Clock::time_point m_since;
    long long m_atStart = 0;  // bytes then
};

}  // namespace kx
