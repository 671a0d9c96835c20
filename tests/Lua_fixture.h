#pragma once

#include "Runner/Lua_Call.h"
#include "Runner/Lua_Library.h"

#include <gtest/gtest.h>
#include <lua5.4/lua.hpp>
#include <memory>
#include <string>

namespace kx::test {

/// A Lua state as scripts have it: contained, with every built-in that is registered by then and the kx table.
class LuaTest : public ::testing::Test {
protected:
    void SetUp() override {
        OpenLibraries(m_lua.get(), Containment::closed, nullptr);
        OpenBuiltIns(m_lua.get());
    }

    /// Runs a chunk and gives its value as a text, or its error.
    std::string Run(const std::string& code) {
        lua_State* L = m_lua.get();
        lua_settop(L, 0);
        luaL_loadbufferx(L, code.data(), code.size(), "=test", "t");
        lua_pcall(L, 0, 1, 0);
        std::string text = luaL_tolstring(L, -1, nullptr);
        lua_settop(L, 0);
        return text;
    }

    lua_State* L() { return m_lua.get(); }
    void CloseLua() { m_lua.reset(); }

private:
    std::unique_ptr<lua_State, decltype(&lua_close)> m_lua{luaL_newstate(), &lua_close};
};

}  // namespace kx::test
