#pragma once

#include "Files/IO/LoadSave.h"

#include <chrono>
#include <string>

namespace kx {

/// One line on a terminal's standard error, shown once a wait has become a long one.
class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;

    ProgressLine();

    /// False where nobody would see it.
    [[nodiscard]] bool IsEnabled() const { return m_enabled; }

    void Begin() { m_since = m_last = Clock::now(); }
    [[nodiscard]] Clock::time_point Since() const { return m_since; }

    /// True every 200 milliseconds, where a second has gone by since the beginning.
    bool IsDue();

    void Show(const std::string& text);
    void Clear();

private:
    const bool m_enabled;
    bool m_shown = false;
    Clock::time_point m_since;
    Clock::time_point m_last;
};

/// Waits for events, and shows how far the requests are that make the wait a long one.
/// @thread the script's
class EventProgress {
public:
    /// As LoadSave::NextEvent. What has been shown is gone when it returns.
    bool WaitForEvent(int milliseconds, ASYNC_EVENT* event);

private:
    void Show();

    ProgressLine m_line;
    bool m_busy = false;      // since the line's beginning requests have been in flight at every wait
    long long m_atStart = 0;  // bytes then
};

/// Shows from now on how far extractions are, and ends one where a signal has come.
void WatchUnzipping();

}  // namespace kx
