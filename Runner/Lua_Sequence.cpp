// kx.list, kx.array and kx.grid: what is reached by numbers from 1.
#include "Files/Base/Number.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

#include <climits>

namespace kx {
namespace {

// Three kinds of sequence with the same operations. Places count from 0; the caller holds the lock.

struct List {
    static constexpr ProxyType kType = ProxyType::list;
    static constexpr const char* kName = "kx.list";

    static int Count(lua_State* L, Proxy* proxy) { return ListOf(L, *proxy).m_count; }
    static const RValue* At(lua_State* L, Proxy* proxy, int place) { return ListOf(L, *proxy).Get(place); }
    static void Remove(lua_State* L, Proxy* proxy, int place) { ListOf(L, *proxy).Delete(place); }
    static void Put(lua_State* L, Proxy* proxy, int place, RValue* value) {
        CDS_List& list = ListOf(L, *proxy);
        if (!list.Set(place, value)) list.Insert(place, value);
    }
};

struct Array {
    static constexpr ProxyType kType = ProxyType::array;
    static constexpr const char* kName = "kx.array";

    static int Count(lua_State*, Proxy* proxy) { return proxy->held.arr->m_length; }
    static const RValue* At(lua_State*, Proxy* proxy, int place) { return &proxy->held.arr->m_elements[place]; }
    static void Remove(lua_State*, Proxy* proxy, int place) { REMOVE_RValue(&proxy->held, place); }
    static void Put(lua_State*, Proxy* proxy, int place, RValue* value) {
        SET_RValue(&proxy->held, value, nullptr, place);
    }
};

/// A grid's row, whose cells can be neither added nor removed.
struct Row {
    static constexpr ProxyType kType = ProxyType::row;
    static constexpr const char* kName = "kx.grid";

    static int Count(lua_State* L, Proxy* proxy) { return GridOf(L, *proxy).m_width; }
    static const RValue* At(lua_State* L, Proxy* proxy, int place) { return GridOf(L, *proxy).At(place, proxy->row); }
    static void Put(lua_State* L, Proxy* proxy, int place, RValue* value) {
        GridOf(L, *proxy).Set(place, proxy->row, value);
    }
};

/// @return the place that a Lua index stands for, from 0; -1 where it is below 1. Raises a Lua error for anything that
/// is
///         no whole number.
int CheckPlace(lua_State* L, const char* name) {
    int isInteger = 0;
    lua_Integer index = lua_tointegerx(L, 2, &isInteger);
    bool whole = isInteger && lua_type(L, 2) == LUA_TNUMBER;
    if (!whole) {
        luaL_error(L, "%s: an index is a whole number from 1, not %s", name, luaL_tolstring(L, 2, nullptr));
    }
    return index >= 1 && index <= INT_MAX ? static_cast<int>(index) - 1 : -1;
}

template <class Sequence>
int Index(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, Sequence::kType);
    int place = CheckPlace(L, Sequence::kName);
    Crossing crossing;
    RValueOwner found(g_undefined);
    {
        DS_AutoMutex lock;
        bool inside = place >= 0 && place < Sequence::Count(L, proxy);
        if (inside) COPY_RValue(&found.value, Sequence::At(L, proxy, place));
    }
    PushValue(L, Sequence::kName, found.value);
    return 1;
}

template <class Sequence>
int SetIndex(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, Sequence::kType);
    int place = CheckPlace(L, Sequence::kName);
    {
        Crossing crossing;
        RValueOwner value;
        TakeValue(L, {Sequence::kName, 0, nullptr}, 3, &value);
        DS_AutoMutex lock;
        int count = Sequence::Count(L, proxy);
        bool inside = place >= 0 && place < count;
        if constexpr (Sequence::kType == ProxyType::row) {
            if (!inside) return luaL_error(L, "kx.grid: the row has columns 1 to %d", count);
            Sequence::Put(L, proxy, place, &value.value);
        } else if (value.value.kind == VALUE_UNDEFINED) {
            if (inside) Sequence::Remove(L, proxy, place);
        } else {
            bool next = place == count;
            if (!inside && !next) {
                return luaL_error(L, "%s: an index is 1 to %d, or %d to add", Sequence::kName, count, count + 1);
            }
            Sequence::Put(L, proxy, place, &value.value);
        }
    }
    Crossing::SafePoint(L);
    return 0;
}

template <class Sequence>
int Length(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, Sequence::kType);
    DS_AutoMutex lock;
    lua_pushinteger(L, Sequence::Count(L, proxy));
    return 1;
}

/// The iterator of pairs: (sequence, index before) gives the next index and element.
int Next(lua_State* L) {
    lua_Integer index = luaL_checkinteger(L, 2) + 1;
    lua_settop(L, 1);
    if (index > luaL_len(L, 1)) return 0;
    lua_pushinteger(L, index);
    lua_geti(L, 1, index);
    return 2;
}

int Pairs(lua_State* L) {
    lua_settop(L, 1);
    lua_pushcfunction(L, Guarded<Next>);
    lua_insert(L, 1);
    lua_pushinteger(L, 0);
    return 3;
}

template <class Sequence>
void Register(lua_State* L) {
    const luaL_Reg methods[] = {{"__index", Guarded<Index<Sequence>>},
                                {"__newindex", Guarded<SetIndex<Sequence>>},
                                {"__len", Guarded<Length<Sequence>>},
                                {"__pairs", Guarded<Pairs>},
                                {nullptr, nullptr}};
    RegisterProxy(L, Sequence::kType, methods);
}

// --- grids ----------------------------------------------------------------------------------------------------------

int GridHeight(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::grid);
    DS_AutoMutex lock;
    lua_pushinteger(L, GridOf(L, *proxy).m_height);
    return 1;
}

int GridRow(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::grid);
    int place = CheckPlace(L, "kx.grid");
    DS_AutoMutex lock;
    bool inside = place >= 0 && place < GridOf(L, *proxy).m_height;
    if (!inside) return 0;
    PushRow(L, *proxy, place);
    return 1;
}

int SetGridRow(lua_State* L) {
    return luaL_error(L, "kx.grid: rows cannot be set, only their cells: grid[row][column] = value");
}

/// kx.grid(id)
int MakeGrid(lua_State* L) {
    lua_settop(L, 1);
    if (lua_type(L, 1) != LUA_TNUMBER) {
        CheckProxy(L, 1, ProxyType::grid);
        return 1;
    }
    PushGrid(L, ToInt32(lua_tonumber(L, 1)));
    if (lua_isnil(L, -1)) return luaL_error(L, "kx.grid: there is no grid %s", luaL_tolstring(L, 1, nullptr));
    return 1;
}

// --- lists and arrays -----------------------------------------------------------------------------------------------

/// Pushes the proxy of a new list with the elements of an array, or with none.
void PushNewList(lua_State* L, const RefDynamicArrayOfRValue* elements) {
    DS_AutoMutex lock;
    DS_Owner<CDS_List> list;
    for (int i = 0; elements && i < elements->m_length; ++i) {
        list->Add(&elements->m_elements[i]);
    }
    int index = FindFreeDsListIndex();
    thelists.arr[index] = list.Release();
    RValue reference{};
    reference.real = index;
    reference.kind = VALUE_REAL | KIND_DS_LIST;
    PushProxyOf(L, reference);
}

/// kx.list([id | table])
int MakeList(lua_State* L) {
    lua_settop(L, 1);
    switch (lua_type(L, 1)) {
    case LUA_TNIL: PushNewList(L, nullptr); return 1;
    case LUA_TTABLE: {
        Crossing crossing;
        RValueOwner elements;
        TakeArray(L, {"kx.list", 1, nullptr}, 1, &elements);
        PushNewList(L, elements.value.arr);
        return 1;
    }
    case LUA_TNUMBER: {
        RValue reference{};
        reference.real = lua_tonumber(L, 1);
        reference.kind = VALUE_REAL | KIND_DS_LIST;
        PushProxyOf(L, reference);
        if (lua_isnil(L, -1)) return luaL_error(L, "kx.list: there is no list %s", luaL_tolstring(L, 1, nullptr));
        return 1;
    }
    default: CheckProxy(L, 1, ProxyType::list); return 1;
    }
}

/// kx.array([table])
int MakeArray(lua_State* L) {
    lua_settop(L, 1);
    if (lua_isuserdata(L, 1)) {
        CheckProxy(L, 1, ProxyType::array);
        return 1;
    }
    if (lua_isnil(L, 1)) {
        lua_newtable(L);
        lua_replace(L, 1);
    }
    luaL_checktype(L, 1, LUA_TTABLE);
    {
        Crossing crossing;
        RValueOwner made;
        TakeArray(L, {"kx.array", 1, nullptr}, 1, &made);
        PushValue(L, "kx.array", made.value);
    }
    Crossing::SafePoint(L);
    return 1;
}

}  // namespace

void OpenSequences(lua_State* L) {
    Register<List>(L);
    Register<Array>(L);
    Register<Row>(L);
    const luaL_Reg grid[] = {{"__index", Guarded<GridRow>},
                             {"__newindex", Guarded<SetGridRow>},
                             {"__len", Guarded<GridHeight>},
                             {"__pairs", Guarded<Pairs>},
                             {nullptr, nullptr}};
    RegisterProxy(L, ProxyType::grid, grid);
    const luaL_Reg makers[] = {
        {"list", Guarded<MakeList>}, {"array", Guarded<MakeArray>}, {"grid", Guarded<MakeGrid>}, {nullptr, nullptr}};
    luaL_setfuncs(L, makers, 0);
}

}  // namespace kx
