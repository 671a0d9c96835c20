#pragma once

#include <lua5.4/lua.hpp>
#include <string>

namespace kx {

/// What a script may do besides calling built-ins.
enum class Containment {
    closed,  ///< no file, program or native code outside the areas can be reached
    open,    ///< all of Lua
};

/// Opens Lua's libraries, `require` for modules of the bundle area, and the `kx` table.
///
/// Closed: base without dofile and loadfile, load for text only; string, table, math, utf8, coroutine; of os time,
/// clock, date and difftime. `require "a.b"` runs a/b.lua of the bundle. Open: everything, and the bundle is one more
/// place that `require` searches.
/// @param atExit  called by kx.exit with the status; does not return.
/// @thread the script's
void OpenLibraries(lua_State* L, Containment containment, void (*atExit)(int status));

/// Pushes the chunk that a file of the bundle holds, or the reason why there is none.
/// @return LUA_OK, or what went wrong: LUA_ERRFILE where the bundle has no such file.
int LoadFromBundle(lua_State* L, const std::string& path);

}  // namespace kx
