// Reading lines through the handlers, against the C library's buffered characters.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <fstream>

namespace kx::bench {
namespace {

constexpr int kLineLength = 60;
constexpr int kFileSize = 64 << 20;
constexpr char kLines[] = "lines.txt";

/// 64 MB of 60-character lines in the save area.
const std::filesystem::path& LinesFile() {
    static const std::filesystem::path path = [] {
        std::string line;
        for (int i = 0; i < kLineLength; ++i) {
            line += static_cast<char>('a' + i % 26);
        }
        line += '\n';
        std::filesystem::path file = MemoryFolder() / kLines;
        std::ofstream out(file, std::ios::binary);
        for (int written = 0; written < kFileSize; written += kLineLength + 1) {
            out << line;
        }
        return file;
    }();
    return path;
}

RValue CallWith(const char* name, RValue argument) {
    RValue result{};
    Function_Find(name)->routine(result, nullptr, nullptr, 1, &argument);
    return result;
}

/// Open, every line through F_FileTextReadLn, close.
void ReadLines_Handler(benchmark::State& state) {
    LinesFile();
    InitFileFunctions();
    LoadSave::SetSaveArea(MemoryFolder().c_str());
    TRoutine readLine = Function_Find("file_text_readln")->routine;
    TRoutine atEnd = Function_Find("file_text_eof")->routine;
    RValue name{};
    KXCreateString(&name, kLines);
    for (auto _ : state) {
        RValue id = CallWith("file_text_open_read", name);
        RValue ended{};
        for (atEnd(ended, nullptr, nullptr, 1, &id); ended.real == 0; atEnd(ended, nullptr, nullptr, 1, &id)) {
            RValue line{};
            readLine(line, nullptr, nullptr, 1, &id);
            benchmark::DoNotOptimize(line.str->m_thing);
            FREE_RValue__Pre(&line);
        }
        CallWith("file_text_close", id);
    }
    FREE_RValue__Pre(&name);
}

/// The barest loop: characters are counted and go nowhere.
void ReadLines_GetcCount(benchmark::State& state) {
    for (auto _ : state) {
        FILE* file = std::fopen(LinesFile().c_str(), "r");
        long lines = 0;
        for (int c = getc_unlocked(file); c != EOF; c = getc_unlocked(file)) {
            if (c == '\n') ++lines;
        }
        benchmark::DoNotOptimize(lines);
        std::fclose(file);
    }
}

/// The same loop with each line put together in one array, which is never allocated.
void ReadLines_GetcStore(benchmark::State& state) {
    for (auto _ : state) {
        FILE* file = std::fopen(LinesFile().c_str(), "r");
        char line[kLineLength + 2];
        int length = 0;
        for (int c = getc_unlocked(file); c != EOF; c = getc_unlocked(file)) {
            line[length++] = static_cast<char>(c);
            if (c != '\n') continue;
            line[length] = 0;
            benchmark::DoNotOptimize(line);
            length = 0;
        }
        std::fclose(file);
    }
}

BENCHMARK(ReadLines_Handler)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadLines_GetcCount)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadLines_GetcStore)->Unit(benchmark::kMillisecond);

const bool g_compared = Compare({"64 MB of lines, open to close: readln / getc that only counts", "ReadLines_Handler",
                                 "ReadLines_GetcCount", 1.5}) &&
                        Compare({"64 MB of lines, open to close: readln / getc that stores lines", "ReadLines_Handler",
                                 "ReadLines_GetcStore", 1.5});

}  // namespace
}  // namespace kx::bench
