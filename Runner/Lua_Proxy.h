#pragma once

#include "Files/Base/RValue.h"
#include "Runner/Lua_Error.h"
#include "Runner/Lua_Value.h"

#include <cstdint>
#include <lua5.4/lua.hpp>
#include <new>

class CDS_Grid;
class CDS_List;
class CDS_Map;
class IBuffer;

/// What stands in Lua for the host's containers: kx.map, kx.list, kx.grid, kx.struct, kx.array and kx.buffer.
///
/// A proxy holds the host's own object, no copy of it, and one object has one proxy at a time: met twice it is the same
/// value in Lua. Structs and arrays live as long as their proxy; maps, lists, grids and buffers live until they are
/// freed, and their proxy then raises an error.
/// @thread the script's
namespace kx {

enum class ProxyType { map, list, grid, row, structure, array, buffer };

/// The names that scripts know the types by, such as "map".
const char* NameOf(ProxyType type);

struct Proxy {
    const void* mark;  ///< tells it from any other userdata
    ProxyType type;
    int index;        ///< map, list, grid, row, buffer: the index in the table
    int row;          ///< row
    uint64_t serial;  ///< with an index: the container's own; a later one at that index has another
    RValue held;      ///< struct, array

    Proxy* previous;  ///< of those that hold something; see Registry
    Proxy* next;
};

/// @return the proxy at an index of the stack; null for any other value.
Proxy* ToProxy(lua_State* L, int index);

/// The same for a function's own type; raises a Lua error for any other value, and for a struct or an array that a
/// finaliser has met after its end.
Proxy* CheckProxy(lua_State* L, int index, ProxyType type);

/// The container that a proxy stands for; raises a Lua error where it has been freed. The caller holds the lock.
CDS_Map& MapOf(lua_State* L, const Proxy& proxy);
CDS_List& ListOf(lua_State* L, const Proxy& proxy);
CDS_Grid& GridOf(lua_State* L, const Proxy& proxy);
IBuffer& BufferOf(lua_State* L, const Proxy& proxy);

/// Raises a Lua error where the container that a proxy stands for has been freed.
void CheckAlive(lua_State* L, const Proxy& proxy);

/// @return the value that a proxy stands for, which owns nothing: the struct or array, a reference to the map or list,
///         a grid's or a buffer's id.
RValue ValueOf(const Proxy& proxy);

/// Pushes the proxy of a struct or an array, or of the map or list that a value refers to; nil where that is freed.
void PushProxyOf(lua_State* L, const RValue& value);

/// Pushes the proxy of the grid of an index, nil where there is none, or of a grid's row.
void PushGrid(lua_State* L, int index);
void PushRow(lua_State* L, const Proxy& grid, int row);

/// Pushes a plain Lua table with everything that the container at an index of the stack holds, tables all the way down.
/// @param index  not relative to the top.
void PushTableOf(lua_State* L, int index);

/// Pushes the proxy of the buffer of an index, nil where there is none.
void PushBuffer(lua_State* L, int index);

/// Makes the tables that proxies are kept in. Before any script's finaliser is: it goes last.
void OpenProxies(lua_State* L);

/// Makes the metatable of a type, with the methods that all types have besides.
void RegisterProxy(lua_State* L, ProxyType type, const luaL_Reg* methods);

/// kx.map and its like: gives the container that the function's argument names by its number or is, or a new one, empty
/// or of a table.
/// @param mark     KIND_DS_MAP or KIND_DS_LIST.
/// @param pushNew  pushes the proxy of a new one, filled from the table at index 1 where there is one.
int MakeIndexed(lua_State* L, ProxyType type, unsigned int mark, void (*pushNew)(lua_State*));

/// kx.struct and its like, in the same way, but not by a number.
int MakeHeld(lua_State* L, ProxyType type, const char* function,
             void (*take)(lua_State*, const Subject&, int, RValueOwner*));

/// Registers the types, and adds kx.map and its like to the table on the stack's top.
void OpenContainers(lua_State* L);
void OpenMap(lua_State* L);
void OpenStruct(lua_State* L);
void OpenSequences(lua_State* L);
void OpenBuffers(lua_State* L);

/// A C function for Lua in which C++ exceptions become Lua errors.
template <lua_CFunction Function>
int Guarded(lua_State* L) {
    try {
        return Function(L);
    } catch (const std::bad_alloc&) {
        Raise(L, "not enough memory");
    }
}

}  // namespace kx
