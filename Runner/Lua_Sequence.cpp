// kx.list, kx.array and kx.grid: what is reached by numbers from 1.
#include "Files/Base/Number.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

#include <climits>
#include <memory>

namespace kx {
namespace {

// Three kinds of sequence with the same operations. Places count from 0; the caller holds the lock.

struct List {
    static constexpr ProxyType kType = ProxyType::list;
    static constexpr const char* kName = "kx.list";
    static constexpr bool kGrows = true;

    static int Count(lua_State* L, Proxy* proxy) { return ListOf(L, *proxy).m_count; }
    static void Get(lua_State* L, Proxy* proxy, int place, RValue* copy) {
        COPY_RValue(copy, ListOf(L, *proxy).Get(place));
    }
    static void Remove(lua_State* L, Proxy* proxy, int place) { ListOf(L, *proxy).Delete(place); }
    static void Put(lua_State* L, Proxy* proxy, int place, RValue* value) {
        CDS_List& list = ListOf(L, *proxy);
        if (!list.Set(place, value)) list.Insert(place, value);
    }
};

struct Array {
    static constexpr ProxyType kType = ProxyType::array;
    static constexpr const char* kName = "kx.array";
    static constexpr bool kGrows = true;

    static int Count(lua_State*, Proxy* proxy) { return proxy->held.arr->m_length; }
    static void Get(lua_State*, Proxy* proxy, int place, RValue* copy) {
        COPY_RValue(copy, &proxy->held.arr->m_elements[place]);
    }
    static void Remove(lua_State*, Proxy* proxy, int place) { REMOVE_RValue(&proxy->held, place); }
    static void Put(lua_State*, Proxy* proxy, int place, RValue* value) {
        SET_RValue(&proxy->held, value, nullptr, place);
    }
};

/// A grid's row, whose cells can be neither added nor removed.
struct Row {
    static constexpr ProxyType kType = ProxyType::row;
    static constexpr const char* kName = "kx.grid";
    static constexpr bool kGrows = false;

    static int Count(lua_State* L, Proxy* proxy) { return GridOf(L, *proxy).m_width; }
    static void Get(lua_State* L, Proxy* proxy, int place, RValue* copy) {
        GridOf(L, *proxy).Get(place, proxy->row, copy);
    }
    static void Remove(lua_State*, Proxy*, int) {}
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
        Raise(L, "%s: an index is a whole number from 1, not the %s %s", name, luaL_typename(L, 2),
              luaL_tolstring(L, 2, nullptr));
    }
    return index >= 1 && index <= INT_MAX ? static_cast<int>(index) - 1 : -1;
}

template <class Sequence>
int Index(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, Sequence::kType);
    int place = CheckPlace(L, Sequence::kName);
    Crossing crossing(L);
    RValueOwner found(g_undefined);
    {
        DS_AutoMutex lock;
        bool inside = place >= 0 && place < Sequence::Count(L, proxy);
        if (inside) Sequence::Get(L, proxy, place, &found.value);
        bool gap = inside && found.value.kind == VALUE_UNDEFINED;
        if (gap) found.value = {{0}, 0, VALUE_PTR};  // kx.null: a nil here would be the sequence's end
    }
    PushValue(L, Sequence::kName, found.value);
    return 1;
}

/// Raises a Lua error for a place that cannot be set: where something is, or, in what grows, the next.
void CheckInside(lua_State* L, const char* name, int place, int count, bool grows) {
    if (place >= 0 && place < count) return;
    if (!grows) Raise(L, "%s: the row has columns 1 to %d", name, count);
    if (place != count) Raise(L, "%s: an index is 1 to %d, or %d to add", name, count, count + 1);
}

template <class Sequence>
int SetIndex(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, Sequence::kType);
    int place = CheckPlace(L, Sequence::kName);
    Crossing crossing(L);
    RValueOwner value;
    TakeValue(L, {Sequence::kName, 0, "the value"}, 3, &value);
    DS_AutoMutex lock;
    int count = Sequence::Count(L, proxy);
    if (Sequence::kGrows && value.value.kind == VALUE_UNDEFINED) {
        if (place >= 0 && place < count) Sequence::Remove(L, proxy, place);
        return 0;
    }
    CheckInside(L, Sequence::kName, place, count, Sequence::kGrows);
    Sequence::Put(L, proxy, place, &value.value);
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
    if (!ToProxy(L, 1)) luaL_typeerror(L, 1, "kx.list or kx.array");
    lua_Integer before = luaL_checkinteger(L, 2);
    lua_settop(L, 1);
    if (before < 0 || before >= luaL_len(L, 1)) return 0;
    lua_Integer index = before + 1;
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
    Raise(L, "kx.grid: rows cannot be set, only their cells: grid[row][column] = value");
}

/// kx.grid(id)
int MakeGrid(lua_State* L) {
    lua_settop(L, 1);
    if (lua_type(L, 1) != LUA_TNUMBER) {
        CheckProxy(L, 1, ProxyType::grid);
        return 1;
    }
    PushGrid(L, ToInt32(lua_tonumber(L, 1)));
    if (lua_isnil(L, -1)) Raise(L, "kx.grid: there is no grid %s", luaL_tolstring(L, 1, nullptr));
    return 1;
}

// --- lists and arrays -----------------------------------------------------------------------------------------------

/// Pushes the proxy of a new list, filled from the table at index 1 where there is one.
void PushNewList(lua_State* L) {
    Crossing crossing(L);
    RValueOwner elements;
    if (lua_istable(L, 1)) TakeArray(L, {"kx.list", 1, nullptr}, 1, &elements);
    auto list = std::make_unique<CDS_List>();
    const RefDynamicArrayOfRValue* array = ArrayIn(elements.value);
    for (int i = 0; array && i < array->m_length; ++i) {
        list->Add(&array->m_elements[i]);
    }
    DS_AutoMutex lock;
    int index = FindFreeDsListIndex();
    thelists.arr[index] = list.release();
    PushProxyOf(L, {{static_cast<double>(index)}, 0, VALUE_REAL | KIND_DS_LIST});
}

/// kx.list([id | table])
int MakeList(lua_State* L) {
    return MakeIndexed(L, ProxyType::list, KIND_DS_LIST, PushNewList);
}

/// kx.array([table])
int MakeArray(lua_State* L) {
    return MakeHeld(L, ProxyType::array, "kx.array", TakeArray);
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
