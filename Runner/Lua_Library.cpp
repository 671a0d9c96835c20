// Lua's libraries as scripts see them, modules from the bundle, and the kx table.
#include "Runner/Lua_Library.h"

#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"
#include "Runner/Lua_Event.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Version.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace kx {
namespace {

struct Library {
    const char* name;
    lua_CFunction open;
};

const Library kClosedLibraries[] = {
    {LUA_GNAME, luaopen_base},       {LUA_STRLIBNAME, luaopen_string}, {LUA_TABLIBNAME, luaopen_table},
    {LUA_MATHLIBNAME, luaopen_math}, {LUA_UTF8LIBNAME, luaopen_utf8},  {LUA_COLIBNAME, luaopen_coroutine},
};

constexpr lua_Integer kMaxStatus = 255;

const char* const kClosedOs[] = {"time", "clock", "date", "difftime"};

/// Stands in package.loaded while a module is being loaded, so that a circle is found.
const char kLoading = 0;

// --- load ----------------------------------------------------------------------------------------------------------

/// load(chunk, name, mode, env) with the mode always "t": binary chunks can crash the interpreter.
int LoadText(lua_State* L) {
    if (lua_gettop(L) < 3) lua_settop(L, 3);
    lua_pushliteral(L, "t");
    lua_replace(L, 3);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
}

// --- require -------------------------------------------------------------------------------------------------------

std::string ModulePath(const char* name) {
    std::string path = name;
    std::replace(path.begin(), path.end(), '.', '/');
    return path + ".lua";
}

/// require(name): the module's value, loaded at the first call.
int Require(lua_State* L) {
    size_t length = 0;
    const char* name = luaL_checklstring(L, 1, &length);
    luaL_argcheck(L, std::strlen(name) == length, 1, "a name with a zero byte");
    lua_settop(L, 1);
    luaL_getsubtable(L, LUA_REGISTRYINDEX, LUA_LOADED_TABLE);  // index 2
    lua_getfield(L, 2, name);
    if (lua_touserdata(L, -1) == &kLoading) return luaL_error(L, "module '%s' requires itself in a circle", name);
    if (lua_toboolean(L, -1)) return 1;
    lua_pop(L, 1);

    if (LoadFromBundle(L, ModulePath(name)) != LUA_OK)
        return luaL_error(L, "module '%s': %s", name, lua_tostring(L, -1));
    lua_pushlightuserdata(L, const_cast<char*>(&kLoading));
    lua_setfield(L, 2, name);
    lua_pushvalue(L, 1);
    if (lua_pcall(L, 1, 1, 0) != LUA_OK) {
        lua_pushnil(L);
        lua_setfield(L, 2, name);  // a later require tries again
        return lua_error(L);
    }
    if (lua_isnil(L, -1)) lua_pushboolean(L, 1);
    lua_pushvalue(L, -1);
    lua_setfield(L, 2, name);
    return 1;
}

/// The bundle as one of package.searchers.
int SearchBundle(lua_State* L) {
    const char* name = luaL_checkstring(L, 1);
    int found = LoadFromBundle(L, ModulePath(name));
    if (found != LUA_OK && found != LUA_ERRFILE) return luaL_error(L, "module '%s': %s", name, lua_tostring(L, -1));
    return 1;
}

// --- kx ------------------------------------------------------------------------------------------------------------

using ExitFunction = void (*)(int);

/// kx.exit([status]): ends the program here and now; nothing can catch it.
int Exit(lua_State* L) {
    lua_Integer status = luaL_optinteger(L, 1, 0);
    luaL_argcheck(L, status >= 0 && status <= kMaxStatus, 1, "an exit status is 0 to 255");
    auto atExit = reinterpret_cast<ExitFunction>(lua_touserdata(L, lua_upvalueindex(1)));
    atExit(static_cast<int>(status));
    return 0;
}

/// os.exit([status]), where true is 0 and false 1: ends the program as kx.exit does, so that files are written.
int OsExit(lua_State* L) {
    if (lua_isboolean(L, 1)) {
        lua_pushinteger(L, lua_toboolean(L, 1) ? 0 : 1);
        lua_replace(L, 1);
    }
    return Exit(L);
}

int NullToString(lua_State* L) {
    if (lua_touserdata(L, 1)) {
        lua_pushfstring(L, "userdata: %p", lua_touserdata(L, 1));
    } else {
        lua_pushliteral(L, "kx.null");
    }
    return 1;
}

/// Pushes kx.null, which prints as such. All light userdata have the one metatable.
void PushNull(lua_State* L) {
    lua_pushlightuserdata(L, nullptr);
    lua_createtable(L, 0, 2);
    lua_pushcfunction(L, NullToString);
    lua_setfield(L, -2, "__tostring");
    lua_pushliteral(L, "kx.null");
    lua_setfield(L, -2, "__metatable");
    lua_setmetatable(L, -2);
}

void OpenKx(lua_State* L, ExitFunction atExit) {
    lua_newtable(L);
    lua_pushstring(L, kVersion);
    lua_setfield(L, -2, "version");
    PushNull(L);
    lua_setfield(L, -2, "null");
    lua_pushlightuserdata(L, reinterpret_cast<void*>(atExit));
    lua_pushcclosure(L, Exit, 1);
    lua_setfield(L, -2, "exit");
    OpenContainers(L);
    OpenEvents(L);
    lua_setglobal(L, "kx");
}

// --- containment ---------------------------------------------------------------------------------------------------

void OpenClosedOs(lua_State* L) {
    luaL_requiref(L, LUA_OSLIBNAME, luaopen_os, 0);
    lua_newtable(L);
    for (const char* name : kClosedOs) {
        lua_getfield(L, -2, name);
        lua_setfield(L, -2, name);
    }
    luaL_getsubtable(L, LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
    lua_pushvalue(L, -2);
    lua_setfield(L, -2, LUA_OSLIBNAME);  // require "os" gives the same few
    lua_pop(L, 1);
    lua_setglobal(L, LUA_OSLIBNAME);
    lua_pop(L, 1);
}

void OpenClosed(lua_State* L) {
    for (const Library& library : kClosedLibraries) {
        luaL_requiref(L, library.name, library.open, 1);
        lua_pop(L, 1);
    }
    OpenClosedOs(L);
    for (const char* name : {"dofile", "loadfile"}) {
        lua_pushnil(L);
        lua_setglobal(L, name);
    }
    lua_getglobal(L, "load");
    lua_pushcclosure(L, LoadText, 1);
    lua_setglobal(L, "load");
    lua_pushcfunction(L, Require);
    lua_setglobal(L, "require");
}

void OpenEverything(lua_State* L, ExitFunction atExit) {
    luaL_openlibs(L);
    lua_getglobal(L, LUA_OSLIBNAME);
    lua_pushlightuserdata(L, reinterpret_cast<void*>(atExit));
    lua_pushcclosure(L, OsExit, 1);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
    lua_getglobal(L, LUA_LOADLIBNAME);
    lua_getfield(L, -1, "searchers");
    lua_pushcfunction(L, SearchBundle);
    lua_rawseti(L, -2, static_cast<lua_Integer>(lua_rawlen(L, -2)) + 1);
    lua_pop(L, 2);
}

/// The code without what luaL_loadfilex leaves out of a file: a byte order mark, and a first line for the shell. That
/// line's end stays, so that lines keep their numbers.
std::string_view WithoutFirstLine(std::string_view code) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (code.substr(0, kByteOrderMark.size()) == kByteOrderMark) code.remove_prefix(kByteOrderMark.size());
    bool forTheShell = !code.empty() && code[0] == '#';
    return forTheShell ? code.substr(std::min(code.find('\n'), code.size())) : code;
}

}  // namespace

int LoadFromBundle(lua_State* L, const std::string& path) {
    int size = 0;
    std::unique_ptr<char, decltype(&KXFree)> text(LoadSave::ReadBundleFile(path.c_str(), &size), &KXFree);
    if (!text) {
        bool there = LoadSave::BundleFileExists(path.c_str());
        lua_pushfstring(L, there ? "cannot read file '%s' of the bundle" : "no file '%s' in the bundle", path.c_str());
        return there ? LUA_ERRRUN : LUA_ERRFILE;
    }
    std::string_view code = WithoutFirstLine({text.get(), static_cast<size_t>(size)});
    std::string chunk = "@" + path;
    return luaL_loadbufferx(L, code.data(), code.size(), chunk.c_str(), "t");
}

void OpenLibraries(lua_State* L, Containment containment, ExitFunction atExit) {
    if (containment == Containment::closed) {
        OpenClosed(L);
    } else {
        OpenEverything(L, atExit);
    }
    OpenKx(L, atExit);
}

}  // namespace kx
