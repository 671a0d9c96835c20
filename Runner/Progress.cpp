// How far long transfers are, on a terminal.
#include "Runner/Progress.h"

#include "Runner/Interrupt.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace kx {
namespace {

constexpr int kTick = 200;                 // milliseconds
constexpr std::chrono::seconds kShort{1};  // what takes no longer is not worth a line

std::string Megabytes(double bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    return text;
}

std::string TimeLeft(double seconds) {
    char text[32];
    auto whole = static_cast<int>(std::min(seconds, 1e6));
    if (whole < 60) {
        std::snprintf(text, sizeof text, "%d s left", whole);
    } else {
        std::snprintf(text, sizeof text, "%d min %d s left", whole / 60, whole % 60);
    }
    return text;
}

}  // namespace

Progress::Progress() : m_enabled(::isatty(STDERR_FILENO) && !std::getenv("NO_COLOR")) {}

bool Progress::WaitForEvent(int milliseconds, ASYNC_EVENT* event) {
    if (!m_enabled) return LoadSave::NextEvent(milliseconds, event);

    Clock::time_point begun = Clock::now();
    if (!m_busy) {
        m_since = begun;
        m_atStart = LoadSave::Progress().ever;
    }
    int left = milliseconds;
    bool come = false;
    for (;;) {
        int tick = left < 0 ? kTick : std::min(left, kTick);
        come = LoadSave::NextEvent(tick, event);
        if (left > 0) left -= tick;
        bool over = come || left == 0 || LoadSave::RequestsInFlight() == 0 || Interruptible::Signal();
        if (over) break;
        Show();
    }
    m_busy = LoadSave::RequestsInFlight() > 0;
    Clear();
    return come;
}

/// The cursor stays at the line's start, so that a message of another thread's goes over it.
void Progress::Show() {
    std::chrono::duration<double> passed = Clock::now() - m_since;
    if (passed < kShort) return;
    HttpProgress progress = LoadSave::Progress();
    double rate = static_cast<double>(progress.ever - m_atStart) / passed.count();
    std::string text =
        "kxrun: " + std::to_string(progress.requests) + (progress.requests == 1 ? " request" : " requests");
    text += ", " + Megabytes(static_cast<double>(progress.received));
    if (progress.expected > 0) text += " of " + Megabytes(static_cast<double>(progress.expected));
    text += ", " + Megabytes(rate) + "/s";
    bool foreseeable = progress.expected > 0 && rate > 0;
    if (foreseeable) text += ", " + TimeLeft(static_cast<double>(progress.expected - progress.received) / rate);
    std::fprintf(stderr, "%s\033[K\r", text.c_str());
    m_shown = true;
}

void Progress::Clear() {
    if (m_shown) std::fprintf(stderr, "\033[K");
    m_shown = false;
}

}  // namespace kx
