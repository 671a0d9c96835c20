// How far long transfers and extractions are, on a terminal.
#include "Runner/Progress.h"

#include "Files/Run/Run_Command.h"
#include "Runner/Interrupt.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace kx {
namespace {

constexpr std::chrono::milliseconds kTick{200};
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

/// Such as ", 3.2 MB/s, 4 s left".
std::string RateAndTimeLeft(double done, double left, std::chrono::duration<double> passed) {
    double rate = done / passed.count();
    std::string text = ", " + Megabytes(rate) + "/s";
    bool foreseeable = left > 0 && rate > 0;
    return foreseeable ? text + ", " + TimeLeft(left / rate) : text;
}

}  // namespace

ProgressLine::ProgressLine() : m_enabled(::isatty(STDERR_FILENO) && !std::getenv("NO_COLOR")) {}

bool ProgressLine::IsDue() {
    Clock::time_point now = Clock::now();
    bool due = now - m_since >= kShort && now - m_last >= kTick;
    if (due) m_last = now;
    return due;
}

/// The cursor stays at the line's start, so that a message of another thread's goes over it.
void ProgressLine::Show(const std::string& text) {
    std::fprintf(stderr, "kxrun: %s\033[K\r", text.c_str());
    m_shown = true;
}

void ProgressLine::Clear() {
    if (m_shown) std::fprintf(stderr, "\033[K");
    m_shown = false;
}

// --- requests -------------------------------------------------------------------------------------------------------

bool EventProgress::WaitForEvent(int milliseconds, ASYNC_EVENT* event) {
    if (!m_line.IsEnabled()) return LoadSave::NextEvent(milliseconds, event);

    if (!m_busy) {
        m_line.Begin();
        m_atStart = LoadSave::Progress().ever;
    }
    constexpr int kWait = kTick.count();
    int left = milliseconds;
    bool come = false;
    for (;;) {
        int tick = left < 0 ? kWait : std::min(left, kWait);
        come = LoadSave::NextEvent(tick, event);
        if (left > 0) left -= tick;
        bool over = come || left == 0 || LoadSave::RequestsInFlight() == 0 || Interruptible::Signal();
        if (over) break;
        Show();
    }
    m_busy = LoadSave::RequestsInFlight() > 0;
    m_line.Clear();
    return come;
}

void EventProgress::Show() {
    if (!m_line.IsDue()) return;
    HttpProgress progress = LoadSave::Progress();
    std::string text = std::to_string(progress.requests) + (progress.requests == 1 ? " request" : " requests");
    text += ", " + Megabytes(static_cast<double>(progress.received));
    if (progress.expected > 0) text += " of " + Megabytes(static_cast<double>(progress.expected));
    double left = progress.expected > 0 ? static_cast<double>(progress.expected - progress.received) : 0;
    m_line.Show(text + RateAndTimeLeft(static_cast<double>(progress.ever - m_atStart), left,
                                       ProgressLine::Clock::now() - m_line.Since()));
}

// --- archives -------------------------------------------------------------------------------------------------------

namespace {

class UnzipLine {
public:
    bool Update(const UnzipProgress& progress) {
        if (!m_running) m_line.Begin();
        m_running = !progress.over;
        if (progress.over) {
            m_line.Clear();
        } else if (m_line.IsEnabled() && m_line.IsDue()) {
            Show(progress);
        }
        return Interruptible::Signal() == 0;
    }

private:
    void Show(const UnzipProgress& progress) {
        std::string name = progress.archive;
        auto done = static_cast<double>(progress.bytes);
        auto all = static_cast<double>(progress.allBytes);
        std::string text = "unpacking " + name.substr(name.rfind('/') + 1) + ": " + std::to_string(progress.files) +
                           " of " + std::to_string(progress.allFiles) + " files, " + Megabytes(done) + " of " +
                           Megabytes(all);
        m_line.Show(text + RateAndTimeLeft(done, all - done, ProgressLine::Clock::now() - m_line.Since()));
    }

    ProgressLine m_line;
    bool m_running = false;
};

bool UpdateUnzipLine(const UnzipProgress& progress) {
    static UnzipLine line;
    return line.Update(progress);
}

}  // namespace

void WatchUnzipping() {
    SetUnzipObserver(UpdateUnzipLine);
}

}  // namespace kx
