#pragma once

#include <lua5.4/lua.hpp>

namespace kx {

/// Reads Lua from standard input line by line and runs it, until the end of the input. On a terminal with editing,
/// history and completion of global names; an expression's values are printed, an unfinished chunk is read on.
/// Errors are printed and do not end it.
void RunRepl(lua_State* L);

}  // namespace kx
