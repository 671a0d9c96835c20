// kx.buffer.
#include "Files/Base/Limits.h"
#include "Files/Buffer/IBuffer.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Proxy.h"

namespace kx {
namespace {

int Length(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::buffer);
    DS_AutoMutex lock;
    lua_pushinteger(L, BufferOf(L, *proxy).m_size);
    return 1;
}

/// kx.bytes(buffer)
int Bytes(lua_State* L) {
    Proxy* proxy = CheckProxy(L, 1, ProxyType::buffer);
    DS_AutoMutex lock;
    const IBuffer& buffer = BufferOf(L, *proxy);
    lua_pushlstring(L, buffer.m_data, static_cast<size_t>(buffer.m_size));
    return 1;
}

/// Makes a buffer of so many zero bytes.
int MakeZeros(lua_State* L) {
    int whole = 0;
    lua_Integer size = lua_tointegerx(L, 1, &whole);
    bool valid = whole && size >= 0 && size <= kMaxFileBytes;
    if (!valid) Raise(L, "kx.buffer: a size is 0 to %d bytes, not %s", kMaxFileBytes, luaL_tolstring(L, 1, nullptr));
    return CreateBuffer(static_cast<int>(size), eBuffer_Format_Grow, 1);
}

/// Makes a buffer of a string's bytes.
int MakeOfText(lua_State* L) {
    size_t length = 0;
    const char* text = lua_tolstring(L, 1, &length);
    if (length > static_cast<size_t>(kMaxFileBytes)) throw std::bad_alloc();
    int index = CreateBuffer(static_cast<int>(length), eBuffer_Format_Grow, 1);
    DS_AutoMutex lock;
    IBuffer::CopyMemoryToBuffer(GetIBuffer(index), reinterpret_cast<const unsigned char*>(text),
                                static_cast<int>(length), 0, -1, 0, true, false, false);
    return index;
}

/// kx.buffer([size | string | buffer])
int Make(lua_State* L) {
    lua_settop(L, 1);
    switch (lua_type(L, 1)) {
    case LUA_TNIL: PushBuffer(L, CreateBuffer(0, eBuffer_Format_Grow, 1)); return 1;
    case LUA_TNUMBER: PushBuffer(L, MakeZeros(L)); return 1;
    case LUA_TSTRING: PushBuffer(L, MakeOfText(L)); return 1;
    default: CheckProxy(L, 1, ProxyType::buffer); return 1;
    }
}

}  // namespace

void OpenBuffers(lua_State* L) {
    const luaL_Reg methods[] = {{"__len", Guarded<Length>}, {nullptr, nullptr}};
    RegisterProxy(L, ProxyType::buffer, methods);
    const luaL_Reg functions[] = {{"buffer", Guarded<Make>}, {"bytes", Guarded<Bytes>}, {nullptr, nullptr}};
    luaL_setfuncs(L, functions, 0);
}

}  // namespace kx
