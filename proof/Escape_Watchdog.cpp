// What ends a campaign that hangs.
#include "proof/Escape_Watchdog.h"

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace kx::proof {
namespace {

constexpr unsigned int kSeconds = 60;
constexpr size_t kPointSize = 512;

char g_point[kPointSize];

void Say(const char* text) {
    ssize_t ignored = ::write(STDERR_FILENO, text, std::strlen(text));
    static_cast<void>(ignored);
}

void Bark(int /*signal*/) {
    Say(g_point);
    Say(": hangs\n");
    ::_exit(1);
}

}  // namespace

Watchdog::Watchdog(const std::string& point) {
    static const auto before = std::signal(SIGALRM, Bark);
    static_cast<void>(before);
    size_t length = point.copy(g_point, kPointSize - 1);
    g_point[length] = 0;
    ::alarm(kSeconds);
}

Watchdog::~Watchdog() {
    ::alarm(0);
}

}  // namespace kx::proof
