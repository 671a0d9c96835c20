// kx.map.
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

#include <memory>
#include <optional>

namespace kx {
namespace {

constexpr Subject kKey = {"kx.map", 0, "the key"};
constexpr Subject kValue = {"kx.map", 0, "the value"};

void CheckKey(lua_State* L, int index) {
    if (lua_istable(L, index)) Raise(L, "kx.map: a table cannot be a key");
}

/// A key from the stack to look with. A string stays Lua's.
class Key {
public:
    Key(lua_State* L, int index) {
        CheckKey(L, index);
        if (lua_type(L, index) == LUA_TSTRING) {
            m_text.emplace(L, kKey, index);
        } else {
            TakeValue(L, kKey, index, &m_other);
        }
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
    Crossing crossing(L);
    Key key(L, 2);
    RValueOwner found;
    if (!Find(L, *proxy, key.Value(), &found)) return 0;
    PushValue(L, "kx.map", found.value);
    return 1;
}

int SetIndex(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::map);
    if (lua_isnil(L, 2)) Raise(L, "kx.map: nil cannot be a key");
    Crossing crossing(L);
    RValueOwner value;
    TakeValue(L, kValue, 3, &value);
    Key key(L, 2);
    DS_AutoMutex lock;
    CDS_Map& map = MapOf(L, *proxy);
    if (value.value.kind == VALUE_UNDEFINED) {
        map.Delete(key.Value());
    } else if (map.Find(key.Value())) {
        map.Set(key.Value(), &value.value);
    } else {
        RValueOwner kept;
        TakeValue(L, kKey, 2, &kept);
        map.Set(&kept.value, &value.value);
    }
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
    if (map.m_changes != changes) {
        Raise(L, "kx.map %d: an entry came or went while it was walked; collect the keys first", proxy.index);
    }
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
    Crossing crossing(L);
    RValueOwner key;
    RValueOwner value;
    if (lua_isnoneornil(L, 2)) {
        if (!Step(L, *proxy, changes, nullptr, &key, &value)) return 0;
    } else {
        Key before(L, 2);
        if (!Step(L, *proxy, changes, before.Value(), &key, &value)) return 0;
    }
    PushValue(L, "kx.map", key.value);
    if (lua_isnil(L, -1)) Raise(L, "kx.map %d has a key that Lua cannot hold", proxy->index);
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

/// Pushes the proxy of a new map, filled from the table at index 1 where there is one. What the table refers to is the
/// script's: where the filling fails, the map goes alone.
void PushNew(lua_State* L) {
    Crossing crossing(L);
    auto map = std::make_unique<CDS_Map>();
    if (lua_istable(L, 1)) {
        TakeEntries(L, {"kx.map", 1, nullptr}, 1, [&](int keyIndex, const RValue& value) {
            RValueOwner key;
            CheckKey(L, keyIndex);
            TakeValue(L, kKey, keyIndex, &key);
            map->Set(&key.value, &value);
        });
    }
    DS_AutoMutex lock;
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.release();
    PushProxyOf(L, {{static_cast<double>(index)}, 0, VALUE_REAL | KIND_DS_MAP});
}

/// kx.map([id | table])
int Make(lua_State* L) {
    return MakeIndexed(L, ProxyType::map, KIND_DS_MAP, PushNew);
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
