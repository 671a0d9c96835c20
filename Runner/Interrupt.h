#pragma once

#include <lua5.4/lua.hpp>

namespace kx {

/// Ctrl-C, and the signal that ends programs, while a script runs: both end it as an error would, so that what is half
/// done is thrown away in good order. A second one ends the program at once.
///
///     Interruptible running(L);
///     …a script is called…
///     if (Interruptible::Signal()) …it was stopped…
///
/// @thread the script's; one at a time counts, the first
class Interruptible {
public:
    explicit Interruptible(lua_State* L);
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;
    ~Interruptible();

    /// @return the signal that has come since the last one was made; 0 where none has.
    static int Signal();

    /// Raises a Lua error where a signal has come: for what waits in C++.
    static void Check(lua_State* L);

private:
    bool m_isFirst;
};

/// Ends the program as the signal would have, for those who wait for it.
[[noreturn]] void EndBySignal(int signal);

}  // namespace kx
