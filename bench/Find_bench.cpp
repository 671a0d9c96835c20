// Searching a directory of many files, against a program that lists it.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Platform/Platform_Hooks.h"
#include "bench/Comparison.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace kx::bench {
namespace {

constexpr int kFiles = 10000;

std::string NameOf(int i) {
    return "save" + std::to_string(i) + ".sav";
}

const std::filesystem::path& ManyFiles() {
    static const std::filesystem::path path = [] {
        std::filesystem::path folder = MemoryFolder() / "many";
        std::filesystem::create_directory(folder);
        for (int i = 0; i < kFiles; ++i) {
            std::ofstream(folder / NameOf(i));
        }
        return folder;
    }();
    return path;
}

/// The directory read, matched and sorted, up to where the list takes over.
void Find_Names(benchmark::State& state) {
    std::string mask = (ManyFiles() / "s*.sav").string();
    LoadSave::SetSaveArea(MemoryFolder().c_str());
    for (auto _ : state) {
        std::vector<std::string> names = FindNames(SaveArea(), mask.c_str(), 0);
        if (names.size() != kFiles) std::abort();
    }
}

/// What the list itself takes: it grows by one each time, and compares each name with all.
void Find_ListGrowth(benchmark::State& state) {
    std::vector<std::string> names;
    for (int i = 0; i < kFiles; ++i) {
        names.push_back(NameOf(i));
    }
    std::sort(names.begin(), names.end());  // as the search adds them
    for (auto _ : state) {
        kxFindData data;
        for (const std::string& name : names) {
            data.AddFile(name.c_str());
        }
        data.Reset();
    }
}

void Find_Ls(benchmark::State& state) {
    std::string folder = ManyFiles().string();
    std::string program = "ls";
    std::string option = "-U";
    char* arguments[] = {program.data(), option.data(), folder.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t child = 0;
        if (posix_spawnp(&child, "ls", &actions, nullptr, arguments, environ) != 0) std::abort();
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK(Find_Names)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Find_ListGrowth)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Find_Ls)->Unit(benchmark::kMillisecond)->UseRealTime();

const bool g_compared =
    Compare({"10,000 files by mask, before the list grows / ls -U", "Find_Names/real_time", "Find_Ls/real_time", 2}) &&
    Compare({"  the list's growth by one name each time / ls -U", "Find_ListGrowth/real_time", "Find_Ls/real_time", 0});

}  // namespace
}  // namespace kx::bench
