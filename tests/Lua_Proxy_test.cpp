// Containers as values of Lua: what they are and how long they live. What scripts do with them stands in
// scripts/containers.lua.
#include "Runner/Lua_Proxy.h"

#include "Files/Base/Collector.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Function/Function_File.h"
#include "Platform/MemoryManager.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/Lua_fixture.h"
#include "tests/support/Console.h"

namespace kx::test {
namespace {

RValue g_kept{};

/// Keeps its argument, as an engine would.
void Keep(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    FREE_RValue__Pre(&g_kept);
    COPY_RValue(&g_kept, &arg[0]);
}

void Give(RValue& result, CInstance*, CInstance*, int, RValue*) {
    COPY_RValue(&result, &g_kept);
}

class Proxies : public LuaTest {
protected:
    void SetUp() override {
        InitFileFunctions();
        Function_Add("keep", Keep, 1, false);
        Function_Add("give", Give, 0, false);
        LuaTest::SetUp();
    }

    void TearDown() override {
        FREE_RValue__Pre(&g_kept);
        g_kept = RValue{};
        CloseLua();
        Collector::Collect();
        EXPECT_EQ(TakeError(), "");
    }
};

TEST_F(Proxies, HoldTheHostsOwnObject) {
    Run("s = kx.struct{x = 1} keep(s)");
    RValue five = Int32(5);
    g_kept.obj->Add("x", five, 0);

    EXPECT_EQ(Run("return s.x"), "5");
    EXPECT_EQ(Run("s.y = 'new' return #s"), "2");
    EXPECT_STREQ(g_kept.obj->Get("y")->str->m_thing, "new");
}

TEST_F(Proxies, OneObjectIsOneValue) {
    for (const char* make : {"kx.struct()", "kx.array()", "kx.map()", "kx.list()"}) {
        SCOPED_TRACE(make);
        EXPECT_EQ(Run(std::string("x = ") + make + " keep(x) return give() == x"), "true");
        EXPECT_EQ(Run("local t = {[x] = 'found'} return t[give()]"), "found");
    }
}

TEST_F(Proxies, OneTableIsOneStruct) {
    EXPECT_EQ(Run("local t = {} local s = kx.struct{a = t, b = t, c = {}} return s.a == s.b and s.a ~= s.c"), "true");
}

TEST_F(Proxies, KeepAStructAliveAndLetItGo) {
    Collector::Collect();  // what tests before left
    long long structs = Collector::Stats().structs;
    Run("held = kx.struct{inner = {x = 1}} dropped = kx.struct()");
    Run("dropped = nil collectgarbage()");

    Collector::Collect();

    EXPECT_EQ(Collector::Stats().structs, structs + 2);
    EXPECT_EQ(Run("return held.inner.x"), "1");
    Run("held = nil collectgarbage()");
    Collector::Collect();
    EXPECT_EQ(Collector::Stats().structs, structs);
}

TEST_F(Proxies, KnowAFreedContainerFromOneThatHasItsIndexNow) {
    EXPECT_EQ(Run("old = kx.map() id = kx.id(old) kx.destroy(old) new = kx.map() return kx.id(new) == id"), "true");

    EXPECT_NE(Run("return old.x").find("has been freed"), std::string::npos);
    EXPECT_EQ(Run("new.x = 1 return new.x"), "1");
    EXPECT_EQ(Run("return old == new"), "false");
}

TEST_F(Proxies, OfAContainerThatTheHostFreesRaiseAnError) {
    Run("m = kx.map() keep(m)");
    FreeDsMap(static_cast<int>(g_kept.real));

    for (const char* code :
         {"return m.x", "m.x = 1", "return #m", "pairs(m)", "kx.id(m)", "kx.destroy(m)", "kx.table(m)",
          "json_encode(m)", "kx.map{inner = m}", "kx.list{m}", "json_stringify{{m}}"}) {
        SCOPED_TRACE(code);
        EXPECT_NE(Run(code).find("has been freed"), std::string::npos);
    }
}

TEST_F(Proxies, AReferenceToAFreedContainerIsNil) {
    Run("outer = kx.map() inner = kx.list() outer.inner = inner kx.destroy(inner)");

    EXPECT_EQ(Run("return outer.inner"), "nil");
    EXPECT_EQ(Run("return json_encode(outer)"), R"({ "inner": null })");
}

TEST_F(Proxies, KeysThatLuaCannotHoldEndTheWalkWithAnError) {
    Run("m = kx.map() keep(m)");
    RValue key = g_undefined;
    DsMapOf(&g_kept)->Set(&key, &key);

    EXPECT_NE(Run("for k, v in pairs(m) do end").find("has a key that Lua cannot hold"), std::string::npos);
}

TEST_F(Proxies, ScriptsCannotReachWhatProxiesAreMadeOf) {
    EXPECT_EQ(Run("return getmetatable(kx.map())"), "kx.map");
    EXPECT_EQ(Run("return pcall(setmetatable, kx.map(), {})"), "false");
    EXPECT_EQ(Run("return getmetatable(kx.null)"), "kx.null");
}

TEST_F(Proxies, AFailedFillLeavesNothingBehind) {
    Run("collectgarbage()");
    long long blocks = MemoryManager::Stats().blocks;
    int maps = mapnumb;

    for (const char* code :
         {"kx.map{a = 'text', f = print}", "kx.list{1, print}", "kx.struct{a = {print}}", "kx.array{'text', print}"}) {
        SCOPED_TRACE(code);
        EXPECT_NE(Run(code).find("is a function"), std::string::npos);
    }

    Collector::Collect();
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_EQ(mapnumb, maps);
}

TEST_F(Proxies, AKeyThatIsKeptOutlivesItsString) {
    EXPECT_EQ(Run("m = kx.map() for i = 1, 100 do m['key ' .. i] = i end collectgarbage() return m['key ' .. 50]"),
              "50");
    EXPECT_EQ(Run("kx.destroy(m)"), "nil");
}

TEST_F(Proxies, AScriptThatParsesForEverStaysWithinConstantMemory) {
    const char* const script = R"(
        local doc = '{"list":[' .. ('{"a":1,"b":[1,2,3]},'):rep(2000) .. '{}]}'
        for i = 1, n do local p = json_parse(doc) p.list[1].back = p end
    )";
    Run("n = 10 " + std::string(script));
    Collector::Statistics some = Collector::Stats();

    Run("n = 100 " + std::string(script));

    EXPECT_LT(Collector::Stats().structs, 2 * some.structs + 40000);
}

TEST_F(Proxies, LongArraysCountByTheirBytes) {
    Run("local doc = '[' .. ('1,'):rep(100000) .. '1]' for i = 1, 60 do json_parse(doc) end");

    EXPECT_LT(MemoryManager::Stats().bytes, 70 << 20);  // of 100 MB in all
}

TEST_F(Proxies, AFinaliserThatMeetsOneAfterItsEndGetsAnErrorOrANewOne) {
    Run(R"(
        o = setmetatable({}, {__gc = function(o)
            ok, message = pcall(function() return o.struct.x end)
            count, why = pcall(function() return #o.array end)
            given = select(2, pcall(keep, o.struct))
            fresh = map.child.x
        end})
        o.struct, o.array = kx.struct{x = 1}, kx.array{1}
        map = kx.map{child = o.struct}
        o = nil
        collectgarbage()
    )");

    for (const char* error : {"message", "why", "given"}) {
        EXPECT_NE(Run(std::string("return ") + error).find("has ended"), std::string::npos) << error;
    }
    EXPECT_EQ(Run("return fresh"), "1");
}

TEST_F(Proxies, AreThereAtTheEndOfTheStateToo) {
    Run(R"(
        state = setmetatable({}, {__gc = function() seen = game.player.hp keep(seen) end})
        game = kx.map{player = {hp = 3}}
        player = game.player
    )");
    CloseLua();

    EXPECT_EQ(g_kept.i64, 3);
}

TEST_F(Proxies, OneThatAFinaliserMakesMeanwhileIsTheOne) {
    const char* const script = R"(
        local m = kx.map()
        local wrong, fired = 0, 0
        local got
        local function again()
            setmetatable({}, {__gc = function() got = m.child fired = fired + 1 again() end})
        end
        again()
        for i = 1, 3000 do
            m.child = {x = i}
            got = nil
            local c = m.child
            if got and got ~= c and got.x == c.x then wrong = wrong + 1 end
            c = nil
            m.child = {x = -i}
            for key in pairs(m) do
                if key ~= 'child' then wrong = wrong + 1 end
            end
        end
        again = function() end
        return wrong
    )";
    EXPECT_EQ(Run("collectgarbage('generational') " + std::string(script)), "0");
}

TEST_F(Proxies, OfMapsAndListsLeaveLuaNothingToKeep) {
    EXPECT_EQ(Run("for i = 1, 200000 do kx.destroy(kx.map()) end collectgarbage() "
                  "return collectgarbage('count') < 2000"),
              "true");
}

TEST_F(Proxies, WhatFailsOrGoesAtOnceIsCollectedToo) {
    for (const char* code :
         {"pcall(json_stringify, {{a = 1}, {b = 2}, print})", "kx.destroy(kx.list{{a = 1}, {b = 2}})",
          "pcall(function() kx.map().x = {a = {}, b = print} end)"}) {
        SCOPED_TRACE(code);
        Run("for i = 1, 60000 do " + std::string(code) + " end");
        EXPECT_LT(Collector::Stats().structs, 60000);
    }
}

TEST_F(Proxies, ErrorsHaveTheScriptsPositionThroughAnyCallInBetween) {
    EXPECT_EQ(Run("local l = kx.list() kx.destroy(l)\ntable.insert(l, 1)").substr(0, 7), "test:2:");
}

TEST_F(Proxies, FinalisersMayCallBuiltInsWhileValuesAreOnTheirWay) {
    const char* const script = R"(
        local function again()
            setmetatable({}, {__gc = function() json_parse('{"a":[1,2,{"b":{}}]}') again() end})
        end
        again()
        for i = 1, 20000 do
            local s = kx.struct{a = {b = {c = {}}}, d = {1, 2, {}}}
            if s.a.b.c == nil or #s.d ~= 3 then error('lost') end
        end
        again = nil
        return 'whole'
    )";
    EXPECT_EQ(Run("collectgarbage('generational') " + std::string(script)), "whole");
}

}  // namespace
}  // namespace kx::test
