// What scripts do with any container: kx.type, kx.id, kx.destroy, kx.table.
#include "Files/Base/Limits.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

namespace kx {
namespace {

/// kx.type(v): "map", "list", "grid", "struct", "array", "null", or what Lua's type says.
int Type(lua_State* L) {
    luaL_checkany(L, 1);
    if (Proxy* proxy = ToProxy(L, 1)) {
        lua_pushstring(L, NameOf(proxy->type));
    } else if (lua_islightuserdata(L, 1) && !lua_touserdata(L, 1)) {
        lua_pushliteral(L, "null");
    } else {
        lua_pushstring(L, luaL_typename(L, 1));
    }
    return 1;
}

/// The proxy of a map, a list or a grid.
Proxy* CheckIndexed(lua_State* L) {
    Proxy* proxy = ToProxy(L, 1);
    bool indexed =
        proxy && (proxy->type == ProxyType::map || proxy->type == ProxyType::list || proxy->type == ProxyType::grid);
    if (!indexed) luaL_typeerror(L, 1, "kx.map, kx.list or kx.grid");
    return proxy;
}

/// kx.id(p)
int Id(lua_State* L) {
    Proxy* proxy = CheckIndexed(L);
    DS_AutoMutex lock;
    CheckAlive(L, *proxy);
    lua_pushnumber(L, proxy->index);
    return 1;
}

/// kx.destroy(p [, whole tree])
int Destroy(lua_State* L) {
    Proxy* proxy = CheckIndexed(L);
    DS_AutoMutex lock;
    CheckAlive(L, *proxy);
    RValue reference = ValueOf(*proxy);
    bool tree = lua_toboolean(L, 2);
    if (proxy->type == ProxyType::grid) {
        FreeDsGrid(proxy->index);
    } else if (tree) {
        FreeDsTree(&reference);
    } else if (proxy->type == ProxyType::map) {
        FreeDsMap(proxy->index);
    } else {
        FreeDsList(proxy->index);
    }
    return 0;
}

void PushCopy(lua_State* L, int known, int depth);

/// Replaces the value on the stack's top by its copy.
void Copy(lua_State* L, int known, int depth) {
    if (!ToProxy(L, -1)) return;
    PushCopy(L, known, depth);
    lua_remove(L, -2);
}

/// Pushes the table that the proxy on the stack's top is a copy of.
/// @param known  index of the table of copies by their proxies: what is met twice becomes one table.
void PushCopy(lua_State* L, int known, int depth) {
    luaL_checkstack(L, 10, "containers nested too deep");
    int proxy = lua_gettop(L);
    lua_pushvalue(L, proxy);
    if (lua_rawget(L, known) == LUA_TTABLE) return;
    lua_pop(L, 1);
    if (depth > kMaxTableNesting) Raise(L, "kx.table: containers are nested too deep");

    lua_newtable(L);
    int copy = lua_gettop(L);
    lua_pushvalue(L, proxy);
    lua_pushvalue(L, copy);
    lua_rawset(L, known);
    luaL_getmetafield(L, proxy, "__pairs");
    lua_pushvalue(L, proxy);
    lua_call(L, 1, 3);
    for (;;) {
        lua_pushvalue(L, copy + 1);  // the iterator
        lua_pushvalue(L, copy + 2);  // its container
        lua_pushvalue(L, copy + 3);  // the key before
        lua_call(L, 2, 2);
        if (lua_isnil(L, -2)) break;
        lua_pushvalue(L, -2);
        lua_replace(L, copy + 3);
        Copy(L, known, depth + 1);
        lua_rawset(L, copy);
    }
    lua_settop(L, copy);
}

/// kx.table(p): a plain Lua table with everything in it, tables all the way down.
int Table(lua_State* L) {
    if (!ToProxy(L, 1)) luaL_typeerror(L, 1, "kx.map, kx.list, kx.grid, kx.struct or kx.array");
    lua_settop(L, 1);
    lua_newtable(L);
    lua_pushvalue(L, 1);
    PushCopy(L, 2, 0);
    return 1;
}

}  // namespace

void OpenContainers(lua_State* L) {
    OpenMap(L);
    OpenStruct(L);
    OpenSequences(L);
    const luaL_Reg functions[] = {{"type", Guarded<Type>},
                                  {"id", Guarded<Id>},
                                  {"destroy", Guarded<Destroy>},
                                  {"table", Guarded<Table>},
                                  {nullptr, nullptr}};
    luaL_setfuncs(L, functions, 0);
}

}  // namespace kx
