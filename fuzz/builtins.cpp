// Built-ins called from Lua in any order with values of any kind: none crashes, reaches outside of the areas or leaves
// anything behind.
#include "Files/Base/Collector.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Lua_Call.h"
#include "Runner/Lua_Library.h"
#include "fuzz/Areas.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"
#include "tests/support/Folder.h"
#include "tests/support/ZipBuilder.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace kx::fuzz {
namespace {

constexpr size_t kMostCalls = 16;
constexpr int kFarthest = 1000;  // a file that is larger takes longer, and says no more

constexpr const char* kTexts[] = {"a",
                                  "b.txt",
                                  "folder/c",
                                  "folder",
                                  "*",
                                  "*.*",
                                  "../outside/secret",
                                  "/etc/passwd",
                                  "",
                                  "game.zip",
                                  "table.csv",
                                  "start.ini",
                                  "text",
                                  "out",
                                  "\xFF\xFE",
                                  "a\\b",
                                  "1.5e3",
                                  "-7",
                                  "section",
                                  "key",
                                  "x=y\n",
                                  "[s]\nk=v\n",
                                  "{\"a\":[1,{}]}",
                                  "[1,2,null]",
                                  "@text@$",
                                  "\"quoted\"",
                                  "@i64@ff$i64$",
                                  "C:/a.b/c",
                                  ".hidden",
                                  "%s%n",
                                  "HOME",
                                  "kx"};
constexpr double kNumbers[] = {0, 1, 2, 3, 4, 31, 32, 255, 256, -1, 0.5, 1e15, -1e300, 16, 2147483647, 4294967296.0};

/// Nothing but this machine is asked, at a port that nobody listens at.
constexpr const char* kUrls[] = {"http://127.0.0.1:1/",
                                 "http://[::1]:1/a?b",
                                 "https://127.0.0.1:1/",
                                 "http://127.0.0.1:0/",
                                 "ftp://127.0.0.1:1/",
                                 "file:///etc/passwd",
                                 "no URL",
                                 ""};
constexpr size_t kHttpUrls = 4;  // of them, the first

const Areas& Prepared() {
    static const Areas& areas = []() -> const Areas& {
        const Areas& fresh = Areas::Get();
        test::WriteWholeFile(fresh.Bundle("game.zip"), test::Build({{"a", "x"}, test::Deflated("folder/d", "yy")}));
        test::WriteWholeFile(fresh.Bundle("table.csv"), "a,\"b\n\",c\n1\n");
        test::WriteWholeFile(fresh.Bundle("start.ini"), "; shipped\n[section]\nkey=1.5\n");
        test::WriteWholeFile(fresh.Bundle("text"), "line 1\r\n2.5 and more");
        return fresh;
    }();
    return areas;
}

/// A script: calls of built-ins, whose results are values of later calls.
class Script {
public:
    explicit Script(Input* input) : m_input(*input), m_asksNetwork(m_input.Below(64) == 63) {}
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script() {
        lua_settop(L(), 0);
        lua_gc(L(), LUA_GCCOLLECT);
    }

    void Run() {
        for (size_t calls = 0; calls < kMostCalls && !m_input.IsOver(); ++calls) {
            const FunctionRecord* record = Function_At(static_cast<int>(m_input.Below(CountOfBuiltIns())));
            bool toNetwork = std::string_view(record->name).substr(0, 5) == "http_";
            if (!toNetwork || m_asksNetwork) Call(*record);
        }
    }

private:
    static size_t CountOfBuiltIns() { return static_cast<size_t>(Function_Count()); }

    /// One state for all: to make one takes longer than to call built-ins. Nothing of a script stays in it.
    static lua_State* L() {
        static const std::unique_ptr<lua_State, decltype(&lua_close)> lua = [] {
            std::unique_ptr<lua_State, decltype(&lua_close)> fresh{luaL_newstate(), &lua_close};
            OpenLibraries(fresh.get(), Containment::closed, nullptr);
            OpenBuiltIns(fresh.get());
            lua_settop(fresh.get(), 0);
            return fresh;
        }();
        return lua.get();
    }

    /// Calls a built-in and leaves its result on the stack.
    void Call(const FunctionRecord& record) {
        luaL_checkstack(L(), record.argc + 2, nullptr);
        int before = lua_gettop(L());
        lua_getglobal(L(), record.name);
        int count = m_input.Below(32) ? record.argc : record.argc + 1;
        for (int i = 0; i < count; ++i) {
            PushArgument(record, i, before);
        }
        int status = lua_pcall(L(), count, 1, 0);
        bool right = status == LUA_OK || (status == LUA_ERRRUN && lua_type(L(), -1) == LUA_TSTRING);
        Require(right && lua_gettop(L()) == before + 1, "a call ends with a result or an error's text", record.name);
        std::string left;
        Require(!KXTakeError(&left), "no error is left pending", left);
        if (status != LUA_OK) lua_pop(L(), 1);
    }

    void PushArgument(const FunctionRecord& record, int index, int results) {
        std::string_view name = record.name;
        if (index == 0 && name == "http_request") {
            lua_pushstring(L(), kUrls[m_input.Below(kHttpUrls)]);  // any other keeps its headers in memory
        } else if (index == 0 && name.substr(0, 5) == "http_") {
            lua_pushstring(L(), m_input.Of(kUrls));
        } else if (index == 1 && name == "file_bin_seek") {
            lua_pushinteger(L(), m_input.ConsumeBool() ? m_input.ConsumeIntegralInRange<int>(-2, kFarthest) : INT_MAX);
        } else {
            PushAny(results);
        }
    }

    void PushAny(int results) {
        switch (m_input.Below(12)) {
        case 0: lua_pushnil(L()); return;
        case 1: lua_pushboolean(L(), m_input.ConsumeBool()); return;
        case 2: lua_pushinteger(L(), m_input.ConsumeIntegral<int64_t>()); return;
        case 3: lua_pushnumber(L(), m_input.ConsumeFloatingPoint<double>()); return;
        case 4: PushText(m_input.ConsumeRandomLengthString(24)); return;
        case 5: PushContainer(); return;
        case 6: PushTable(); return;
        case 7:
        case 8: lua_pushnumber(L(), m_input.Of(kNumbers)); return;
        case 9: PushResult(results); return;
        default: lua_pushstring(L(), m_input.Of(kTexts));
        }
    }

    void PushText(const std::string& text) { lua_pushlstring(L(), text.data(), text.size()); }

    void PushResult(int results) {
        if (results == 0) return lua_pushnil(L());
        lua_pushvalue(L(), 1 + static_cast<int>(m_input.Below(static_cast<size_t>(results))));
    }

    /// A new map, list, struct or array, or kx.null.
    void PushContainer() {
        constexpr const char* kNames[] = {"map", "list", "struct", "array", "null"};
        lua_getglobal(L(), "kx");
        lua_getfield(L(), -1, m_input.Of(kNames));
        lua_remove(L(), -2);
        if (!lua_isfunction(L(), -1)) return;
        lua_pushvalue(L(), -1);
        bool made = lua_pcall(L(), 0, 1, 0) == LUA_OK;
        lua_remove(L(), -2);
        Require(made, "a container is made");
    }

    void PushTable() {
        lua_newtable(L());
        for (lua_Integer i = static_cast<lua_Integer>(m_input.Below(4)); i > 0; --i) {
            lua_pushstring(L(), m_input.Of(kTexts));
            if (m_input.ConsumeBool()) {
                lua_rawseti(L(), -2, i);
            } else {
                lua_setfield(L(), -2, m_input.Of(kTexts));
            }
        }
    }

    Input& m_input;
    bool m_asksNetwork;
};

template <class Table, class Free>
void FreeAll(const Table& table, Free free) {
    for (int i = 1; i < table.length; ++i) {
        if (table.arr[i]) free(i);
    }
}

/// What the end of a program does, and the next one finds.
void EndProgram() {
    MemoryManager::Free(KXTRQ_ini_close());
    for (int id = 1; id < MAXFILE; ++id) {
        if (filestatus[id] != FILE_CLOSED) LoadSave::fclose(textfiles[id].hF);
        MemoryManager::Free(textfiles[id].name);
    }
    InitTextFiles();
    FINALIZE_Function_File();
    InitBinFiles();
    LoadSave::Shutdown();
    g_kxFindData.Reset();
    filesrused = false;
    FreeAll(themaps, FreeDsMap);
    FreeAll(thelists, FreeDsList);
    FreeAll(thegrids, FreeDsGrid);
    Collector::Collect();
    TakeError();
}

/// The lowest descriptor that is free.
int NextDescriptor() {
    int next = ::open("/", O_RDONLY | O_CLOEXEC);
    ::close(next);
    return next;
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const kx::fuzz::Areas& areas = kx::fuzz::Prepared();
    kx::fuzz::Round round;
    int descriptor = kx::fuzz::NextDescriptor();
    kx::fuzz::Input input(data, size);
    kx::fuzz::Script(&input).Run();
    kx::fuzz::EndProgram();
    kx::fuzz::Require(kx::fuzz::NextDescriptor() == descriptor, "no descriptor is left open");
    areas.RequireOutsideUntouched();
    areas.Clear();
    return 0;
}
