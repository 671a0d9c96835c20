#pragma once

#include <lua5.4/lua.hpp>

namespace kx {

/// Makes every registered built-in a Lua global, but for those that take more than kx::kMaxCallArguments.
///
/// A call checks the number of arguments, maps them, runs the handler and maps the result. What the handler raised with
/// KXError, or threw, becomes a Lua error with the script's position, after the handler has returned.
/// @thread the script's
void OpenBuiltIns(lua_State* L);

}  // namespace kx
