// Collecting what neither Lua nor the host has any more.
#include "Files/Base/Collector.h"
#include "Platform/MemoryManager.h"
#include "Runner/Lua_Value.h"

namespace kx {
namespace {

/// Collects Lua's own garbage, whose proxies hold structs and arrays. That takes as long as Lua's heap is large, so it
/// is done only where as much can have come together on the host's side.
class LuaCollection {
public:
    static bool IsWorthIt(lua_State* L) {
        long long luaBytes = 1024LL * lua_gc(L, LUA_GCCOUNT);
        return Held() - g_left > luaBytes / 2;
    }

    static void Run(lua_State* L) {
        lua_gc(L, LUA_GCCOLLECT);
        Collector::SafePoint();
        g_left = Held();
    }

private:
    static long long Held() {
        constexpr long long kObject = 100;
        Collector::Statistics objects = Collector::Stats();
        return MemoryManager::Stats().bytes + kObject * (objects.structs + objects.arrays);
    }

    static long long g_left;  // by the last one
};

long long LuaCollection::g_left = 0;

}  // namespace

void Crossing::SafePoint(lua_State* L) {
    if (g_countSTRING_RValue >= kManyVisits) Collector::SafePoint();
    if (!g_madeObjects || !Collector::IsDue() || !LuaCollection::IsWorthIt(L)) return;
    ++g_crossings;  // finalisers cross too
    LuaCollection::Run(L);
    --g_crossings;
    g_madeObjects = false;
}

}  // namespace kx
