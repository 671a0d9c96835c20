// The host that fuzz targets run in.
#include "fuzz/Host.h"

#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File.h"
#include "Platform/MemoryManager.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

/// Inputs allocate little and often: a short quarantine stays in the cache, and where a block was allocated is asked
/// for when an input is repeated. The environment may say otherwise.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=16:malloc_context_size=1:allocator_may_return_null=1:detect_leaks=1";
}

namespace kx::fuzz {
namespace {

/// Prints nowhere, but reads all that it is to print.
class SilentConsole : public IConsole {
public:
    void Output(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
    }
};

IConsole* g_console = nullptr;  // the one that this one stands in for: still reachable, not leaked

bool Start() {
    g_console = std::exchange(dbg_csol, new SilentConsole);
    InitFileFunctions();
    return true;
}

std::string Visible(const std::string& text) {
    std::string visible;
    for (char c : text) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        bool control = static_cast<unsigned char>(c) < 0x20 && c != '\n';
        visible += control ? hex : std::string(1, c);
    }
    return visible;
}

}  // namespace

void Require(bool held, const char* property, const std::string& details) {
    if (held) return;
    std::fprintf(stderr, "does not hold: %s\n%s\n", property, Visible(details).c_str());
    std::abort();
}

bool TakeError() {
    std::string text;
    return KXTakeError(&text);
}

Round::Round() {
    static const bool started = Start();
    static_cast<void>(started);
    m_blocks = MemoryManager::Stats().blocks;
}

Round::~Round() {
    TakeError();
    long long left = MemoryManager::Stats().blocks - m_blocks;
    Require(left == 0, "no host memory is left behind", std::to_string(left) + " blocks");
}

}  // namespace kx::fuzz
