#pragma once

#include <thread>

namespace kx {

/// Starts a thread of the host's own. Signals are for the program's threads: it gets none, and a peer that has gone is
/// an error there, not a signal.
/// @param thread  not joinable.
/// @param name    what debuggers show, 15 bytes at most.
/// @return false where the system has no thread or no memory for one left.
bool StartThread(std::thread* thread, const char* name, void (*body)(void*), void* context);

}  // namespace kx
