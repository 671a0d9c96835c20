// kx.map.
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

#include <optional>

namespace kx {
namespace {

constexpr Subject kSubject = {"kx.map", 0, nullptr};

/// A key from the stack. A string stays Lua's.
class Key {
public:
    Key(lua_State* L, int index) {
        if (lua_type(L, index) == LUA_TSTRING) {
            m_text.emplace(L, kSubject, index);
            return;
        }
        if (lua_istable(L, index)) luaL_error(L, "kx.map: a table cannot be a key");
        TakeValue(L, kSubject, index, &m_other);
    }

    const RValue* Value() const { return m_text ? m_text->Value() : &m_other.value; }

private:
    std::optional<BorrowedText> m_text;
    RValueOwner m_other;
};

/// Copies what a map has for a key.
/// @return false where it has nothing.
bool Find(lua_State* L, const Proxy& proxy, const RValue* key, RValueOwner* found) {
    DS_AutoMutex lock;
    const RValue* value = MapOf(L, proxy).Find(key);
    if (value) COPY_RValue(&found->value, value);
    return value != nullptr;
}

int Index(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    Crossing crossing;
    Key key(L, 2);
    RValueOwner found;
    if (!Find(L, *proxy, key.Value(), &found)) return 0;
    PushValue(L, "kx.map", found.value);
    return 1;
}

int SetIndex(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    if (lua_isnil(L, 2)) return luaL_error(L, "kx.map: nil cannot be a key");
    {
        Crossing crossing;
        RValueOwner value;
        TakeValue(L, kSubject, 3, &value);
        Key key(L, 2);
        DS_AutoMutex lock;
        CDS_Map& map = MapOf(L, *proxy);
        if (value.value.kind == VALUE_UNDEFINED) {
            map.Delete(key.Value());
        } else {
            map.Set(key.Value(), &value.value);
        }
    }
    Crossing::SafePoint(L);
    return 0;
}

int Length(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    DS_AutoMutex lock;
    lua_pushinteger(L, MapOf(L, *proxy).Count());
    return 1;
}

/// Copies the entry after a key; null stands for the start.
/// @return false at the end.
bool Step(lua_State* L, const Proxy& proxy, uint64_t changes, const RValue* after, RValueOwner* key,
          RValueOwner* value) {
    DS_AutoMutex lock;
    CDS_Map& map = MapOf(L, proxy);
    if (map.m_changes != changes) luaL_error(L, "kx.map %d: an entry came or went while it was walked", proxy.index);
    const MapStore* entry = after ? map.FindNext(after) : map.FindFirst();
    if (!entry) return false;
    COPY_RValue(&key->value, &entry->key);
    COPY_RValue(&value->value, &entry->value);
    return true;
}

/// The iterator of pairs: (map, key before) gives the next key and value.
int Next(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    auto changes = static_cast<uint64_t>(lua_tointeger(L, lua_upvalueindex(1)));
    Crossing crossing;
    RValueOwner key;
    RValueOwner value;
    if (lua_isnoneornil(L, 2)) {
        if (!Step(L, *proxy, changes, nullptr, &key, &value)) return 0;
    } else {
        Key before(L, 2);
        if (!Step(L, *proxy, changes, before.Value(), &key, &value)) return 0;
    }
    PushValue(L, "kx.map", key.value);
    if (lua_isnil(L, -1)) return luaL_error(L, "kx.map %d has a key that Lua cannot hold", proxy->index);
    PushValue(L, "kx.map", value.value);
    return 2;
}

int Pairs(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    DS_AutoMutex lock;
    lua_pushinteger(L, static_cast<lua_Integer>(MapOf(L, *proxy).m_changes));
    lua_pushcclosure(L, Guarded<Next>, 1);
    lua_pushvalue(L, 1);
    return 2;
}

/// Sets every entry of the table at index 1.
void FillFromTable(lua_State* L, CDS_Map* map) {
    lua_pushnil(L);
    while (lua_next(L, 1)) {
        int value = lua_gettop(L);
        RValueOwner taken;
        TakeValue(L, {"kx.map", 1, luaL_tolstring(L, value - 1, nullptr)}, value, &taken);
        Key key(L, value - 1);
        map->Set(key.Value(), &taken.value);
        lua_settop(L, value - 1);
    }
}

/// Pushes the proxy of a new map, filled from the table at index 1 where there is one.
void PushNew(lua_State* L) {
    Crossing crossing;
    DS_Owner<CDS_Map> map;
    if (lua_istable(L, 1)) FillFromTable(L, map.Get());
    DS_AutoMutex lock;
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.Release();
    RValue reference{};
    reference.real = index;
    reference.kind = VALUE_REAL | KIND_DS_MAP;
    PushProxyOf(L, reference);
}

/// kx.map([id | table])
int Make(lua_State* L) {
    lua_settop(L, 1);
    switch (lua_type(L, 1)) {
    case LUA_TNIL:
    case LUA_TTABLE:
        PushNew(L);
        Crossing::SafePoint(L);
        return 1;
    case LUA_TNUMBER: {
        RValue reference{};
        reference.real = lua_tonumber(L, 1);
        reference.kind = VALUE_REAL | KIND_DS_MAP;
        PushProxyOf(L, reference);
        if (lua_isnil(L, -1)) return luaL_error(L, "kx.map: there is no map %s", luaL_tolstring(L, 1, nullptr));
        return 1;
    }
    default: CheckProxy(L, 1, ProxyType::map); return 1;
    }
}

}  // namespace

void OpenMap(lua_State* L) {
    const luaL_Reg methods[] = {{"__index", Guarded<Index>},
                                {"__newindex", Guarded<SetIndex>},
                                {"__len", Guarded<Length>},
                                {"__pairs", Guarded<Pairs>},
                                {nullptr, nullptr}};
    RegisterProxy(L, ProxyType::map, methods);
    lua_pushcfunction(L, Guarded<Make>);
    lua_setfield(L, -2, "map");
}

}  // namespace kx
