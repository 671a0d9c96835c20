// INI documents: opened and closed, read from Lua, written back.
#include "Files/Base/IniFile.h"
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"
#include "Runner/Lua_Call.h"
#include "bench/Comparison.h"
#include "bench/IniText.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <ini.h>
#include <lua5.4/lua.hpp>
#include <memory>
#include <string>
#include <vector>

namespace kx::bench {
namespace {

constexpr char kName[] = "settings.ini";
constexpr int kAllKeys = kIniSections * kIniKeys;

void Require(bool condition) {
    if (!condition) std::abort();
}

/// The document in a folder that is then the save area.
std::filesystem::path PutInto(const std::filesystem::path& folder) {
    Require(LoadSave::SetSaveArea(folder.c_str()) == 0);
    std::ofstream(folder / kName, std::ios::binary) << IniText();
    return folder / kName;
}

// --- opening --------------------------------------------------------------------------------------------------------

void Ini_OpenOurs(benchmark::State& state) {
    PutInto(MemoryFolder());
    for (auto _ : state) {
        KXTRQ_ini_open(kName);
        char* text = KXTRQ_ini_close();
        benchmark::DoNotOptimize(text);
        MemoryManager::Free(text);
    }
}

int CountKey(void* count, const char*, const char*, const char*) {
    return ++*static_cast<int*>(count);
}

void Ini_OpenTheirs(benchmark::State& state) {
    std::filesystem::path path = PutInto(MemoryFolder());
    for (auto _ : state) {
        int count = 0;
        Require(ini_parse(path.c_str(), CountKey, &count) == 0 && count == kAllKeys);
    }
}

// --- reading --------------------------------------------------------------------------------------------------------

constexpr char kReadAll[] = R"(
    local shuffled = ...
    local read, names = ini_read_real, {}
    for s = 0, 1999 do
        for k = 0, 19 do names[#names + 1] = { string.format("section%04d", s), string.format("key%02d", k) } end
    end
    if shuffled then
        math.randomseed(1)
        for i = #names, 2, -1 do
            local j = math.random(i)
            names[i], names[j] = names[j], names[i]
        end
    end
    local sections, keys = {}, {}
    for i, name in ipairs(names) do sections[i], keys[i] = name[1], name[2] end
    return function()
        for i = 1, #sections do read(sections[i], keys[i], 0) end
    end)";

/// One iteration is one call, every key once, with the loop in Lua around it.
void ReadReals(benchmark::State& state, bool shuffled) {
    InitFileFunctions();
    std::unique_ptr<lua_State, decltype(&lua_close)> lua(luaL_newstate(), &lua_close);
    luaL_openlibs(lua.get());
    OpenBuiltIns(lua.get());
    Require(luaL_loadstring(lua.get(), kReadAll) == LUA_OK);
    lua_pushboolean(lua.get(), shuffled);
    lua_call(lua.get(), 1, 1);
    KXTRQ_ini_open_from_string(IniText().c_str());
    while (state.KeepRunningBatch(kAllKeys)) {
        lua_pushvalue(lua.get(), -1);
        lua_call(lua.get(), 0, 0);
    }
    MemoryManager::Free(KXTRQ_ini_close());
}

void Ini_ReadReal(benchmark::State& state) {
    ReadReals(state, false);
}

void Ini_ReadRealShuffled(benchmark::State& state) {
    ReadReals(state, true);
}

// --- writing --------------------------------------------------------------------------------------------------------

/// Every key gets another text, all of one length.
void ChangeEveryKey(IniFile* file) {
    static const std::vector<std::string> sections = IniSectionNames();
    static const std::vector<std::string> keys = IniKeyNames();
    for (const std::string& section : sections) {
        for (const std::string& key : keys) {
            file->SetKey(section.c_str(), key.c_str(), "1234.500000");
        }
    }
}

/// The document as it is on the disk once every key has changed.
const std::string& Changed() {
    static const std::string text = [] {
        PutInto(DiskFolder());
        IniFile file(const_cast<char*>(kName), false);
        ChangeEveryKey(&file);
        char* written = file.WriteIniFile();
        std::string copy = written;
        MemoryManager::Free(written);
        return copy;
    }();
    return text;
}

void Ini_ChangeOurs(benchmark::State& state) {
    Changed();
    PutInto(DiskFolder());
    const std::string text = IniText();
    for (auto _ : state) {
        state.PauseTiming();
        // Durably, so that what is measured does not have to write this out too.
        Require(LoadSave::WriteFile(kName, text.data(), static_cast<int>(text.size()), nullptr) == 1);
        auto file = std::make_unique<IniFile>(const_cast<char*>(kName), false);
        state.ResumeTiming();
        ChangeEveryKey(file.get());
        MemoryManager::Free(file->WriteIniFile());
        file.reset();
    }
    Require(std::filesystem::file_size(DiskFolder() / kName) == Changed().size());
}

void Ini_ChangeTheirs(benchmark::State& state) {
    auto size = static_cast<int>(Changed().size());
    PutInto(DiskFolder());
    for (auto _ : state) {
        Require(LoadSave::WriteFile(kName, Changed().data(), size, nullptr) == 1);
    }
}

BENCHMARK(Ini_OpenOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(Ini_OpenTheirs)->Unit(benchmark::kMillisecond);
BENCHMARK(Ini_ReadReal);
BENCHMARK(Ini_ReadRealShuffled);
BENCHMARK(Ini_ChangeOurs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Ini_ChangeTheirs)->Unit(benchmark::kMillisecond)->UseRealTime();

const bool g_opened =
    Compare({"40,000 keys in 2,000 sections, opened and closed / ini_parse", "Ini_OpenOurs", "Ini_OpenTheirs", 2});
const bool g_read = Limit("one ini_read_real of the same document, from Lua", "Ini_ReadReal", 400);
const bool g_shuffled = Limit("the same in no order", "Ini_ReadRealShuffled", 0);
const bool g_changed = Compare({"every key of it changed and saved / the same bytes saved", "Ini_ChangeOurs/real_time",
                                "Ini_ChangeTheirs/real_time", 3});

}  // namespace
}  // namespace kx::bench
