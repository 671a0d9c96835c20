// The call gate: what one call of a built-in from Lua costs.
#include "Files/Code/Code_Function.h"
#include "Runner/Lua_Call.h"
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>
#include <memory>

namespace kx::bench {
namespace {

constexpr char kName[] = "bench_take_string";
constexpr int kCalls = 1000;

void TakeString(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    benchmark::DoNotOptimize(KXGetString(arg, 0));
    result.real = 1;
    result.kind = VALUE_REAL;
}

/// One iteration is one call, with the loop in Lua around it.
void Gate_OneString(benchmark::State& state) {
    Function_Add(kName, TakeString, 1, false);
    std::unique_ptr<lua_State, decltype(&lua_close)> lua(luaL_newstate(), &lua_close);
    OpenBuiltIns(lua.get());
    luaL_loadstring(lua.get(), "local take, calls = bench_take_string, ... for i = 1, calls do take('a string') end");
    while (state.KeepRunningBatch(kCalls)) {
        lua_pushvalue(lua.get(), -1);
        lua_pushinteger(lua.get(), kCalls);
        lua_call(lua.get(), 1, 0);
    }
}

BENCHMARK(Gate_OneString);

const bool g_limited = Limit("one call through the gate with one string", "Gate_OneString", 150);

}  // namespace
}  // namespace kx::bench
