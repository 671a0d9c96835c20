// Counts what a campaign has tried and what did not hold.
#include "proof/Campaign.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace kx::proof {

namespace {

constexpr size_t kShown = 20;

[[noreturn]] void ShowUsage(const char* program, const char* purpose, FILE* out, int status) {
    std::fprintf(out, "Usage: %s [--short]\n\n%s\n\n  --short  a sample of it, for CI\n", program, purpose);
    std::exit(status);
}

}  // namespace

Options ReadOptions(int count, char** arguments, const char* purpose) {
    Options options{};
    for (int i = 1; i < count; ++i) {
        if (std::strcmp(arguments[i], "--short") == 0) {
            options.isShort = true;
        } else if (std::strcmp(arguments[i], "--help") == 0) {
            ShowUsage(arguments[0], purpose, stdout, 0);
        } else {
            ShowUsage(arguments[0], purpose, stderr, 2);
        }
    }
    return options;
}

void WorkInMemory() {
    constexpr char kMemoryFolder[] = "/dev/shm";
    if (::access(kMemoryFolder, W_OK | X_OK) == 0) ::setenv("TMPDIR", kMemoryFolder, 0);
}

Campaign::Campaign(std::string name) : m_name(std::move(name)) {}

void Campaign::Begin(const std::string& point) {
    m_point = point;
    ++m_points;
    ShowProgress();
}

bool Campaign::Check(bool held, const std::string& promise) {
    if (held) return true;
    ++m_broken;
    if (m_broken <= kShown) {
        std::fprintf(stderr, "%s: %s: %s\n", m_name.c_str(), m_point.c_str(), promise.c_str());
    }
    return false;
}

int Campaign::End(size_t atLeast) {
    std::printf("%s: %zu points, %zu broken promises\n", m_name.c_str(), m_points, m_broken);
    std::fflush(stdout);
    if (m_points < atLeast) {
        std::printf("%s: too few points: %zu are asked for\n", m_name.c_str(), atLeast);
        return 1;
    }
    return m_broken ? 1 : 0;
}

void Campaign::ShowProgress() const {
    static const bool isTerminal = isatty(STDERR_FILENO) == 1;
    if (isTerminal && m_points % 64 == 0) {
        std::fprintf(stderr, "\r%s: %zu points\033[K\r", m_name.c_str(), m_points);
    }
}

}  // namespace kx::proof
