#pragma once

#include <lua5.4/lua.hpp>

namespace kx {

/// Raises a Lua error with a text in lua_pushfstring's form, and before it the position of the nearest caller that is a
/// script: table.insert, pcall and their like may stand between.
[[noreturn]] void Raise(lua_State* L, const char* format, ...);

}  // namespace kx
