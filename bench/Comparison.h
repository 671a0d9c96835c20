#pragma once

#include <filesystem>
#include <string>

/// Benchmarks in pairs: ours, and what it is held against, in one run.
namespace kx::bench {

/// Says that one benchmark's time is to be at most `bar` times another's; 0 for a time that is only to be seen. Both
/// are named as they were registered.
struct Pair {
    const char* work;
    const char* ours;
    const char* theirs;
    double bar;
};

/// Registers a pair for the table that the run ends with. For a static object's initialiser.
bool Compare(const Pair& pair);

/// Says that one benchmark's time is to be under a number of nanoseconds; 0 for a time that is only to be seen.
bool Limit(const char* work, const char* ours, double nanoseconds);

/// Folders of this run, removed at its end: in memory, and on a disk.
const std::filesystem::path& MemoryFolder();
const std::filesystem::path& DiskFolder();

}  // namespace kx::bench
