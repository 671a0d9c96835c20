// What scripts do with any container: kx.type, kx.id, kx.destroy, kx.table.
#include "Files/Base/Limits.h"
#include "Files/Buffer/IBuffer.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

namespace kx {
namespace {

/// kx.type(v): "map", "list", "grid", "struct", "array", "buffer", "null", or what Lua's type says.
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

/// The proxy of what scripts may know by a number.
Proxy* CheckIndexed(lua_State* L) {
    Proxy* proxy = ToProxy(L, 1);
    bool indexed = proxy && (proxy->type == ProxyType::map || proxy->type == ProxyType::list ||
                             proxy->type == ProxyType::grid || proxy->type == ProxyType::buffer);
    if (!indexed) luaL_typeerror(L, 1, "kx.map, kx.list, kx.grid or kx.buffer");
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
    } else if (proxy->type == ProxyType::buffer) {
        FreeBuffer(proxy->index);
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
    Proxy* proxy = ToProxy(L, 1);
    bool holdsValues = proxy && proxy->type != ProxyType::buffer;
    if (!holdsValues) luaL_typeerror(L, 1, "kx.map, kx.list, kx.grid, kx.struct or kx.array");
    lua_settop(L, 1);
    PushTableOf(L, 1);
    return 1;
}

/// Pushes the proxy of the map or list whose index is the number at index 1.
void PushByIndex(lua_State* L, ProxyType type, unsigned int mark) {
    int whole = 0;
    lua_Integer index = lua_tointegerx(L, 1, &whole);
    if (whole) {
        PushProxyOf(L, {{static_cast<double>(index)}, 0, VALUE_REAL | mark});
        if (!lua_isnil(L, -1)) return;
    }
    Raise(L, "kx.%s: there is no %s %s", NameOf(type), NameOf(type), luaL_tolstring(L, 1, nullptr));
}

}  // namespace

void PushTableOf(lua_State* L, int index) {
    lua_newtable(L);
    int known = lua_gettop(L);
    lua_pushvalue(L, index);
    PushCopy(L, known, 0);
    lua_replace(L, known);
    lua_settop(L, known);
}

int MakeIndexed(lua_State* L, ProxyType type, unsigned int mark, void (*pushNew)(lua_State*)) {
    lua_settop(L, 1);
    switch (lua_type(L, 1)) {
    case LUA_TNIL:
    case LUA_TTABLE: pushNew(L); return 1;
    case LUA_TNUMBER: PushByIndex(L, type, mark); return 1;
    default: CheckProxy(L, 1, type); return 1;
    }
}

int MakeHeld(lua_State* L, ProxyType type, const char* function,
             void (*take)(lua_State*, const Subject&, int, RValueOwner*)) {
    lua_settop(L, 1);
    if (lua_isuserdata(L, 1)) {
        CheckProxy(L, 1, type);
        return 1;
    }
    if (lua_isnil(L, 1)) {
        lua_newtable(L);
        lua_replace(L, 1);
    }
    luaL_checktype(L, 1, LUA_TTABLE);
    Crossing crossing(L);
    RValueOwner made;
    take(L, {function, 1, nullptr}, 1, &made);
    PushValue(L, function, made.value);
    return 1;
}

void OpenContainers(lua_State* L) {
    OpenProxies(L);
    OpenMap(L);
    OpenStruct(L);
    OpenSequences(L);
    OpenBuffers(L);
    const luaL_Reg functions[] = {{"type", Guarded<Type>},
                                  {"id", Guarded<Id>},
                                  {"destroy", Guarded<Destroy>},
                                  {"table", Guarded<Table>},
                                  {nullptr, nullptr}};
    luaL_setfuncs(L, functions, 0);
}

}  // namespace kx
