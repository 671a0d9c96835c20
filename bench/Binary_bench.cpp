// Reading bytes through the handler, against the C library's buffered characters.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kx::bench {
namespace {

constexpr int kFileSize = 16 << 20;
constexpr char kBytes[] = "bytes.bin";

const std::filesystem::path& BytesFile() {
    static const std::filesystem::path path = [] {
        std::string bytes;
        for (int i = 0; i < kFileSize; ++i) {
            bytes += static_cast<char>(i * 7);
        }
        std::filesystem::path file = MemoryFolder() / kBytes;
        std::ofstream(file, std::ios::binary) << bytes;
        return file;
    }();
    return path;
}

/// Every byte through F_FileBinReadByte; the file stays open.
void ReadBytes_Handler(benchmark::State& state) {
    BytesFile();
    InitFileFunctions();
    LoadSave::SetSaveArea(MemoryFolder().c_str());
    TRoutine readByte = Function_Find("file_bin_read_byte")->routine;
    TRoutine seek = Function_Find("file_bin_seek")->routine;
    RValue open[2] = {};
    KXCreateString(&open[0], kBytes);
    RValue id{};
    Function_Find("file_bin_open")->routine(id, nullptr, nullptr, 2, open);
    if (id.real != 1) std::abort();
    for (auto _ : state) {
        RValue start[2] = {id, {}};
        RValue ignored{};
        seek(ignored, nullptr, nullptr, 2, start);
        double sum = 0;
        for (int i = 0; i < kFileSize; ++i) {
            RValue byte{};
            readByte(byte, nullptr, nullptr, 1, &id);
            sum += byte.real;
        }
        benchmark::DoNotOptimize(sum);
    }
    RValue ignored{};
    Function_Find("file_bin_close")->routine(ignored, nullptr, nullptr, 1, &id);
    FREE_RValue__Pre(&open[0]);
}

void ReadBytes_Getc(benchmark::State& state) {
    FILE* file = std::fopen(BytesFile().c_str(), "rb");
    for (auto _ : state) {
        std::rewind(file);
        double sum = 0;
        for (int c = getc_unlocked(file); c != EOF; c = getc_unlocked(file)) {
            sum += c;
        }
        benchmark::DoNotOptimize(sum);
    }
    std::fclose(file);
}

BENCHMARK(ReadBytes_Handler)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadBytes_Getc)->Unit(benchmark::kMillisecond);

const bool g_compared =
    Compare({"16 MB byte by byte: file_bin_read_byte / getc_unlocked", "ReadBytes_Handler", "ReadBytes_Getc", 8});

}  // namespace
}  // namespace kx::bench
