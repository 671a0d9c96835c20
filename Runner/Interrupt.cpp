// Ctrl-C while a script runs.
#include "Runner/Interrupt.h"

#include "Files/IO/LoadSave.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace kx {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

volatile std::sig_atomic_t g_signal = 0;
std::atomic<lua_State*> g_running = nullptr;
struct sigaction g_before[2];

/// Stays in place: a script that catches the error is stopped again at its next line.
void Stop(lua_State* L, lua_Debug*) {
    luaL_error(L, "interrupted");
}

void StopAtNextLine(lua_State* L) {
    lua_sethook(L, Stop, LUA_MASKCALL | LUA_MASKRET | LUA_MASKLINE | LUA_MASKCOUNT, 1);
}

/// Setting a hook is all that Lua allows here.
void OnSignal(int signal) {
    g_signal = signal;
    if (lua_State* L = g_running) StopAtNextLine(L);
    LoadSave::InterruptEvents();
}

}  // namespace

Interruptible::Interruptible(lua_State* L) : m_isFirst(!g_running) {
    if (!m_isFirst) return;
    g_signal = 0;
    g_running = L;
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one does what it always does
    for (int i = 0; i < 2; ++i) {
        ::sigaction(kSignals[i], &action, &g_before[i]);
        if (g_before[i].sa_handler == SIG_IGN) ::sigaction(kSignals[i], &g_before[i], nullptr);  // as under nohup
    }
}

Interruptible::~Interruptible() {
    if (!m_isFirst) return;
    for (int i = 0; i < 2; ++i) {
        ::sigaction(kSignals[i], &g_before[i], nullptr);
    }
    lua_sethook(g_running, nullptr, 0, 0);
    g_running = nullptr;
}

int Interruptible::Signal() {
    return g_signal;
}

void Interruptible::Check(lua_State* L) {
    if (g_signal) luaL_error(L, "interrupted");
}

void EndBySignal(int signal) {
    std::signal(signal, SIG_DFL);
    ::raise(signal);
    std::_Exit(128 + signal);  // where it is blocked
}

}  // namespace kx
