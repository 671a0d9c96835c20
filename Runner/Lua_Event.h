#pragma once

#include <lua5.4/lua.hpp>

namespace kx {

/// Events of finished requests, on the script's thread.
///
/// An event goes to whoever awaits its request, else to the script's handler; without a handler it is kept until there
/// is one, or an await. Its maps are freed once it has been handled.

/// Adds kx.on_async and kx.await to the table on the stack's top.
void OpenEvents(lua_State* L);

/// Runs the event loop until no request is in flight and every event that can be handled has been. Errors of handlers
/// pass. For a lua_State's own call.
int RunEvents(lua_State* L);

/// Handles the events that have come, and waits for none.
int RunReadyEvents(lua_State* L);

}  // namespace kx
