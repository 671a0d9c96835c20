// A durable save from Lua, against the bare steps that make a save durable.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Runner/Lua_Call.h"
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <lua5.4/lua.hpp>
#include <memory>
#include <string>
#include <unistd.h>

namespace kx::bench {
namespace {

constexpr int kSaveSize = 64 << 10;

void Require(bool condition) {
    if (!condition) std::abort();
}

void Save_Lua(benchmark::State& state) {
    InitFileFunctions();
    Require(LoadSave::SetSaveArea((DiskFolder() / "lua").c_str()) == 0);
    std::unique_ptr<lua_State, decltype(&lua_close)> lua(luaL_newstate(), &lua_close);
    OpenBuiltIns(lua.get());
    std::string save(kSaveSize, 's');
    luaL_loadstring(lua.get(), "local text = ... local f = file_text_open_write('save.txt') "
                               "file_text_write_string(f, text) file_text_close(f)");
    for (auto _ : state) {
        lua_pushvalue(lua.get(), -1);
        lua_pushlstring(lua.get(), save.data(), save.size());
        lua_call(lua.get(), 1, 0);
    }
    Require(std::filesystem::file_size(DiskFolder() / "lua" / "save.txt") == kSaveSize);
}

/// Temporary, fdatasync, rename, fsync of the directory.
void Save_Bare(benchmark::State& state) {
    std::filesystem::path folder = DiskFolder() / "bare";
    std::filesystem::create_directory(folder);
    std::string temporary = folder / "save.tmp";
    std::string target = folder / "save.txt";
    std::string save(kSaveSize, 's');
    for (auto _ : state) {
        int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        Require(::write(file, save.data(), save.size()) == kSaveSize);
        Require(::fdatasync(file) == 0 && ::close(file) == 0);
        Require(::rename(temporary.c_str(), target.c_str()) == 0);
        int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
        Require(::fsync(directory) == 0 && ::close(directory) == 0);
    }
}

BENCHMARK(Save_Lua)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(Save_Bare)->Unit(benchmark::kMicrosecond)->UseRealTime();

const bool g_compared = Compare(
    {"durable save of 64 KB from Lua / the four steps in bare C", "Save_Lua/real_time", "Save_Bare/real_time", 1.3});

}  // namespace
}  // namespace kx::bench
