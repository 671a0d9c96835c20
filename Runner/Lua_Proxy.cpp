// Proxies: one for each container, and its life.
#include "Runner/Lua_Proxy.h"

#include "Files/Base/Collector.h"
#include "Files/Base/Registry.h"
#include "Files/Buffer/IBuffer.h"
#include "Files/Support/Support_Data_Structures.h"

#include <iterator>

namespace kx {
namespace {

const char kMark = 0;
const char kProxies = 0;  // registry key of the table of proxies, by serial or by address; its values are weak

const char kHolding = 0;  // registry key of the proxies that hold something

constexpr const char* kNames[] = {"map", "list", "grid", "grid row", "struct", "array", "buffer"};
char g_metatables[std::size(kNames)];  // registry keys

const char* MetatableOf(ProxyType type) {
    return &g_metatables[static_cast<size_t>(type)];
}

Proxy* NewProxy(lua_State* L, ProxyType type) {
    auto* proxy = static_cast<Proxy*>(lua_newuserdatauv(L, sizeof(Proxy), 0));
    *proxy = Proxy{&kMark, type, 0, 0, 0, RValue{}, nullptr, nullptr};
    lua_rawgetp(L, LUA_REGISTRYINDEX, MetatableOf(type));
    lua_setmetatable(L, -2);
    return proxy;
}

/// Pushes what the table of proxies has for a key, or a new proxy.
/// @param get    pushes what the table on the stack's top has; gives its type.
/// @param begin  makes a proxy what it is to be.
/// @param put    sets what the table below the stack's top has to the value on the top, which it takes.
template <class Get, class Begin, class Put>
void FindOrMake(lua_State* L, ProxyType type, Get get, Begin begin, Put put) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kProxies);
    if (get() != LUA_TUSERDATA) {
        lua_pop(L, 1);
        Proxy* proxy = NewProxy(L, type);
        lua_insert(L, -2);
        if (get() != LUA_TUSERDATA) {  // making one may run finalisers, which may make it too
            begin(proxy);
            lua_pop(L, 1);
            lua_pushvalue(L, -2);
            put();
            lua_pop(L, 1);
            return;
        }
        lua_remove(L, -3);  // the one that came too late
    }
    lua_remove(L, -2);
}

void PushContainer(lua_State* L, ProxyType type, int index, uint64_t serial) {
    auto key = static_cast<lua_Integer>(serial);
    FindOrMake(
        L, type, [&] { return lua_rawgeti(L, -1, key); },
        [&](Proxy* proxy) {
            proxy->index = index;
            proxy->serial = serial;
        },
        [&] { lua_rawseti(L, -2, key); });
}

using HoldingProxies = Registry<Proxy>;

HoldingProxies& Holding(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kHolding);
    auto* proxies = static_cast<HoldingProxies*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    return *proxies;
}

void LetGo(Proxy* proxy) {
    if (proxy->type == ProxyType::structure) Collector::RemoveRoot(&proxy->held);
    FREE_RValue__Pre(&proxy->held);
    proxy->held = RValue{};
}

/// The end of the state, after every script's finalisers: for the proxies that those have made Lua calls none.
int LetAllGo(lua_State* L) {
    auto* proxies = static_cast<HoldingProxies*>(lua_touserdata(L, 1));
    proxies->ForEach(LetGo);
    proxies->~HoldingProxies();
    return 0;
}

void PushHeld(lua_State* L, ProxyType type, const RValue& value) {
    FindOrMake(
        L, type, [&] { return lua_rawgetp(L, -1, value.ptr); },
        [&](Proxy* proxy) {
            if (type == ProxyType::structure) Collector::AddRoot(&proxy->held);
            Holding(L).Add(proxy);
            COPY_RValue(&proxy->held, &value);
        },
        [&] { lua_rawsetp(L, -2, value.ptr); });
}

/// The end of a struct's or an array's proxy. What it stood for may live on: whoever meets it next gets a new proxy.
int Release(lua_State* L) {
    Proxy* proxy = ToProxy(L, 1);
    if (!proxy || !proxy->held.ptr) return 0;
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kProxies);
    lua_rawgetp(L, -1, proxy->held.ptr);
    if (lua_rawequal(L, -1, 1)) {
        lua_pushnil(L);
        lua_rawsetp(L, -3, proxy->held.ptr);
    }
    Holding(L).Remove(proxy);
    LetGo(proxy);
    return 0;
}

bool HoldsObject(ProxyType type) {
    return type == ProxyType::structure || type == ProxyType::array;
}

void CheckNotEnded(lua_State* L, const Proxy& proxy) {
    if (!proxy.held.ptr) Raise(L, "this kx.%s has ended: a finaliser that needs it comes too late", NameOf(proxy.type));
}

int ToString(lua_State* L) {
    Proxy* proxy = ToProxy(L, 1);
    if (!proxy) Raise(L, "not a container");
    if (HoldsObject(proxy->type)) {
        lua_pushfstring(L, "kx.%s: %p", NameOf(proxy->type), proxy->held.ptr);
    } else {
        lua_pushfstring(L, "kx.%s: %d", NameOf(proxy->type), proxy->index);
    }
    return 1;
}

/// @param container  what has the proxy's index now.
template <class Container>
Container& CheckSame(lua_State* L, const Proxy& proxy, Container* container) {
    if (!container || container->m_serial != proxy.serial) {
        Raise(L, "kx.%s %d has been freed", NameOf(proxy.type), proxy.index);
    }
    return *container;
}

template <class Container>
Container& Alive(lua_State* L, const Proxy& proxy, const DS_Table<Container>& table) {
    return CheckSame(L, proxy, proxy.index < table.length ? table.arr[proxy.index] : nullptr);
}

}  // namespace

const char* NameOf(ProxyType type) {
    return kNames[static_cast<size_t>(type)];
}

Proxy* ToProxy(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TUSERDATA || lua_rawlen(L, index) != sizeof(Proxy)) return nullptr;
    auto* proxy = static_cast<Proxy*>(lua_touserdata(L, index));
    return proxy->mark == &kMark ? proxy : nullptr;
}

Proxy* CheckProxy(lua_State* L, int index, ProxyType type) {
    Proxy* proxy = ToProxy(L, index);
    bool right = proxy && proxy->type == type;
    if (!right) luaL_typeerror(L, index, lua_pushfstring(L, "kx.%s", NameOf(type)));
    if (HoldsObject(type)) CheckNotEnded(L, *proxy);
    return proxy;
}

CDS_Map& MapOf(lua_State* L, const Proxy& proxy) {
    return Alive(L, proxy, themaps);
}

CDS_List& ListOf(lua_State* L, const Proxy& proxy) {
    return Alive(L, proxy, thelists);
}

CDS_Grid& GridOf(lua_State* L, const Proxy& proxy) {
    return Alive(L, proxy, thegrids);
}

IBuffer& BufferOf(lua_State* L, const Proxy& proxy) {
    return CheckSame(L, proxy, GetIBuffer(proxy.index));
}

void CheckAlive(lua_State* L, const Proxy& proxy) {
    DS_AutoMutex lock;
    switch (proxy.type) {
    case ProxyType::map: MapOf(L, proxy); return;
    case ProxyType::list: ListOf(L, proxy); return;
    case ProxyType::grid:
    case ProxyType::row: GridOf(L, proxy); return;
    case ProxyType::buffer: BufferOf(L, proxy); return;
    case ProxyType::structure:
    case ProxyType::array: CheckNotEnded(L, proxy); return;
    }
}

RValue ValueOf(const Proxy& proxy) {
    RValue value = proxy.held;
    switch (proxy.type) {
    case ProxyType::structure:
    case ProxyType::array: return value;
    case ProxyType::map: value.kind = VALUE_REAL | KIND_DS_MAP; break;
    case ProxyType::list: value.kind = VALUE_REAL | KIND_DS_LIST; break;
    case ProxyType::grid:
    case ProxyType::row:
    case ProxyType::buffer: value.kind = VALUE_REAL; break;
    }
    value.real = proxy.index;
    return value;
}

void PushProxyOf(lua_State* L, const RValue& value) {
    if ((value.kind & KIND_MASK) == VALUE_OBJECT) return PushHeld(L, ProxyType::structure, value);
    if ((value.kind & KIND_MASK) == VALUE_ARRAY) return PushHeld(L, ProxyType::array, value);
    DS_AutoMutex lock;
    CDS_Map* map = DsMapOf(&value);
    if (map) return PushContainer(L, ProxyType::map, static_cast<int>(value.real), map->m_serial);
    CDS_List* list = DsListOf(&value);
    if (list) return PushContainer(L, ProxyType::list, static_cast<int>(value.real), list->m_serial);
    lua_pushnil(L);
}

void PushGrid(lua_State* L, int index) {
    DS_AutoMutex lock;
    CDS_Grid* grid = index >= 1 && index < thegrids.length ? thegrids.arr[index] : nullptr;
    if (grid) return PushContainer(L, ProxyType::grid, index, grid->m_serial);
    lua_pushnil(L);
}

void PushBuffer(lua_State* L, int index) {
    DS_AutoMutex lock;
    IBuffer* buffer = GetIBuffer(index);
    if (buffer) return PushContainer(L, ProxyType::buffer, index, buffer->m_serial);
    lua_pushnil(L);
}

void PushRow(lua_State* L, const Proxy& grid, int row) {
    int index = grid.index;
    uint64_t serial = grid.serial;
    Proxy* proxy = NewProxy(L, ProxyType::row);
    proxy->index = index;
    proxy->serial = serial;
    proxy->row = row;
}

void OpenProxies(lua_State* L) {
    lua_newtable(L);
    lua_newtable(L);
    lua_pushliteral(L, "v");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kProxies);

    new (lua_newuserdatauv(L, sizeof(HoldingProxies), 0)) HoldingProxies;
    lua_newtable(L);
    lua_pushcfunction(L, LetAllGo);
    lua_setfield(L, -2, "__gc");
    lua_setmetatable(L, -2);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kHolding);
}

void RegisterProxy(lua_State* L, ProxyType type, const luaL_Reg* methods) {
    lua_newtable(L);
    luaL_setfuncs(L, methods, 0);
    lua_pushcfunction(L, ToString);
    lua_setfield(L, -2, "__tostring");
    if (HoldsObject(type)) {
        lua_pushcfunction(L, Release);
        lua_setfield(L, -2, "__gc");
    }
    lua_pushfstring(L, "kx.%s", NameOf(type));
    lua_pushvalue(L, -1);
    lua_setfield(L, -3, "__name");
    lua_setfield(L, -2, "__metatable");  // scripts see its name and nothing else
    lua_rawsetp(L, LUA_REGISTRYINDEX, MetatableOf(type));
}

}  // namespace kx
