// Errors with the script's position.
#include "Runner/Lua_Error.h"

#include <cstdarg>
#include <cstdlib>

namespace kx {
namespace {

void PushPosition(lua_State* L) {
    lua_Debug caller;
    int level = 1;
    while (lua_getstack(L, level, &caller) && lua_getinfo(L, "l", &caller) && caller.currentline <= 0) {
        ++level;
    }
    luaL_where(L, level);
}

}  // namespace

void Raise(lua_State* L, const char* format, ...) {
    PushPosition(L);
    va_list arguments;
    va_start(arguments, format);
    lua_pushvfstring(L, format, arguments);
    va_end(arguments);
    lua_concat(L, 2);
    lua_error(L);
    std::abort();  // lua_error does not return
}

}  // namespace kx
