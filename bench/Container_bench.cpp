// Maps: from C++ beside the standard library's, from Lua beside a table behind C functions.
#include "Files/Code/Code_Function.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"
#include "Runner/Lua_Library.h"
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace kx::bench {
namespace {

constexpr int kEntries = 1000000;
constexpr int kAccesses = 1000;

const std::vector<std::string>& Keys() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> made;
        for (int i = 0; i < kEntries; ++i) {
            made.push_back("entity/" + std::to_string(i * 7919LL % kEntries) + "/health");
        }
        return made;
    }();
    return keys;
}

/// One iteration is a map that is filled, looked up in as often, and freed.
void Map_Ours(benchmark::State& state) {
    auto count = static_cast<size_t>(state.range(0));
    long long bytes = 0;
    for (auto _ : state) {
        long long before = MemoryManager::Stats().bytes;
        CDS_Map map;
        for (size_t i = 0; i < count; ++i) {
            RValueOwner key;
            KXCreateString(&key.value, Keys()[i].c_str());
            RValue value = {{static_cast<double>(i)}, 0, VALUE_REAL};
            map.Set(&key.value, &value);
        }
        bytes = MemoryManager::Stats().bytes - before;
        for (size_t i = 0; i < count; ++i) {
            _RefThing<char const*> record{Keys()[i].c_str(), 1, static_cast<int>(Keys()[i].size())};
            RValue key{};
            key.str = &record;
            key.kind = VALUE_STRING;
            benchmark::DoNotOptimize(map.Find(&key));
        }
    }
    state.counters["bytes/entry"] = static_cast<double>(bytes) / static_cast<double>(count);
}

void Map_Theirs(benchmark::State& state) {
    auto count = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        std::unordered_map<std::string, double> map;
        for (size_t i = 0; i < count; ++i) {
            map[Keys()[i]] = static_cast<double>(i);
        }
        for (size_t i = 0; i < count; ++i) {
            benchmark::DoNotOptimize(map.find(Keys()[i]));
        }
    }
}

/// Texts that share the lowest bits of their hash, as an attacker would choose them.
std::vector<std::string> ChosenKeys(size_t count, unsigned int buckets) {
    auto hashOf = [](const std::string& text) {
        CDS_Map map;
        RValueOwner key;
        KXCreateString(&key.value, text.c_str());
        map.Set(&key.value, &key.value);
        return [&] {
            const Hash<MapStore>& table = *map.m_pHashTable;
            for (int i = 0;; ++i) {
                if (table.m_pHashingTable[i].m_pFirst) return table.m_pHashingTable[i].m_pFirst->m_ID;
            }
        }();
    };
    std::vector<std::string> keys;
    for (int i = 0; keys.size() < count; ++i) {
        std::string text = std::to_string(i);
        if (buckets == 1 || hashOf(text) % buckets == 0) keys.push_back(text);
    }
    return keys;
}

void FillMap(benchmark::State& state, const std::vector<std::string>& keys) {
    for (auto _ : state) {
        CDS_Map map;
        for (const std::string& text : keys) {
            RValueOwner key;
            KXCreateString(&key.value, text.c_str());
            map.Set(&key.value, &key.value);
        }
    }
}

void Map_ChosenKeys(benchmark::State& state) {
    static const std::vector<std::string> keys = ChosenKeys(4000, 4096);
    FillMap(state, keys);
}

void Map_OrdinaryKeys(benchmark::State& state) {
    static const std::vector<std::string> keys = ChosenKeys(4000, 1);
    FillMap(state, keys);
}

// --- from Lua --------------------------------------------------------------------------------------------------------

/// A table behind a userdata, reached through C functions.
int TableIndex(lua_State* L) {
    lua_getiuservalue(L, 1, 1);
    lua_pushvalue(L, 2);
    lua_rawget(L, -2);
    return 1;
}

int TableNewIndex(lua_State* L) {
    lua_getiuservalue(L, 1, 1);
    lua_pushvalue(L, 2);
    lua_pushvalue(L, 3);
    lua_rawset(L, -3);
    return 0;
}

void PushWrappedTable(lua_State* L) {
    lua_newuserdatauv(L, 8, 1);
    lua_newtable(L);
    lua_setiuservalue(L, -2, 1);
    lua_newtable(L);
    lua_pushcfunction(L, TableIndex);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, TableNewIndex);
    lua_setfield(L, -2, "__newindex");
    lua_setmetatable(L, -2);
}

/// One iteration is one access, with the loop in Lua around it.
void Access(benchmark::State& state, bool ours, const char* statement) {
    std::unique_ptr<lua_State, decltype(&lua_close)> lua(luaL_newstate(), &lua_close);
    lua_State* L = lua.get();
    OpenLibraries(L, Containment::closed, nullptr);
    luaL_loadstring(
        L, (std::string("local m, n = ... m.health = 1 m.name = 2 for i = 1, n do ") + statement + " end").c_str());
    if (ours) {
        luaL_loadstring(L, "return kx.map()");
        lua_call(L, 0, 1);
    } else {
        PushWrappedTable(L);
    }
    while (state.KeepRunningBatch(kAccesses)) {
        lua_pushvalue(L, -2);
        lua_pushvalue(L, -2);
        lua_pushinteger(L, kAccesses);
        lua_call(L, 2, 0);
    }
}

void MapGet_Ours(benchmark::State& state) {
    Access(state, true, "local h = m.health");
}

void MapGet_Theirs(benchmark::State& state) {
    Access(state, false, "local h = m.health");
}

void MapSet_Ours(benchmark::State& state) {
    Access(state, true, "m.health = i");
}

void MapSet_Theirs(benchmark::State& state) {
    Access(state, false, "m.health = i");
}

BENCHMARK(Map_Ours)->Arg(kEntries / 10)->Arg(kEntries)->Unit(benchmark::kMillisecond);
BENCHMARK(Map_Theirs)->Arg(kEntries / 10)->Arg(kEntries)->Unit(benchmark::kMillisecond);
BENCHMARK(Map_ChosenKeys)->Unit(benchmark::kMicrosecond);
BENCHMARK(Map_OrdinaryKeys)->Unit(benchmark::kMicrosecond);
BENCHMARK(MapGet_Ours);
BENCHMARK(MapGet_Theirs);
BENCHMARK(MapSet_Ours);
BENCHMARK(MapSet_Theirs);

const bool g_compared =
    Compare({"a map of 100,000 texts / std::unordered_map", "Map_Ours/100000", "Map_Theirs/100000", 2}) &&
    Compare({"a map of 1,000,000 texts / std::unordered_map", "Map_Ours/1000000", "Map_Theirs/1000000", 2}) &&
    Compare({"4,000 keys that share a bucket / as many others", "Map_ChosenKeys", "Map_OrdinaryKeys", 0}) &&
    Compare({"kx.map read with a text from Lua / a table behind __index in C", "MapGet_Ours", "MapGet_Theirs", 4}) &&
    Compare({"kx.map written with a text from Lua / the same", "MapSet_Ours", "MapSet_Theirs", 4});

}  // namespace
}  // namespace kx::bench
