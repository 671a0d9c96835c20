// Makes an archive the bundle and reads a file of it, and does the same with libzip alone, in turn, so many times and
// each time with another file. Prints the medians of both sides, microseconds.
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>
#include <zip.h>

namespace {

void Require(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

std::string ReadOurs(const std::string& archive, const std::string& name) {
    Require(LoadSave::SetBundleArea(archive.c_str()) == 0, "no bundle");
    int size = 0;
    char* data = LoadSave::ReadBundleFile(name.c_str(), &size);
    Require(data, "nothing read from the bundle");
    std::string contents(data, static_cast<size_t>(size));
    MemoryManager::Free(data);
    return contents;
}

std::string ReadTheirs(const std::string& archive, const std::string& name) {
    zip_t* zip = zip_open(archive.c_str(), ZIP_RDONLY, nullptr);
    Require(zip, "libzip opens nothing");
    zip_int64_t index = zip_name_locate(zip, name.c_str(), 0);
    Require(index >= 0, "libzip finds nothing");
    zip_stat_t status;
    Require(zip_stat_index(zip, static_cast<zip_uint64_t>(index), 0, &status) == 0, "libzip knows no size");
    zip_file_t* file = zip_fopen_index(zip, static_cast<zip_uint64_t>(index), 0);
    Require(file, "libzip opens no file");
    std::string contents(status.size, '\0');
    zip_int64_t size = zip_fread(file, contents.data(), contents.size());
    Require(size == static_cast<zip_int64_t>(contents.size()), "libzip reads nothing");
    zip_fclose(file);
    zip_close(zip);
    return contents;
}

std::vector<std::string> NamesIn(const std::string& archive) {
    zip_t* zip = zip_open(archive.c_str(), ZIP_RDONLY, nullptr);
    Require(zip, "libzip opens nothing");
    std::vector<std::string> names;
    for (zip_int64_t i = 0; i < zip_get_num_entries(zip, 0); ++i) {
        names.emplace_back(zip_get_name(zip, static_cast<zip_uint64_t>(i), 0));
    }
    zip_close(zip);
    return names;
}

using Reader = std::string (*)(const std::string& archive, const std::string& name);

/// Microseconds that a reader takes.
double TimeOf(Reader reader, const std::string& archive, const std::string& name, std::string* contents) {
    auto start = std::chrono::steady_clock::now();
    *contents = reader(archive, name);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void Measure(const std::string& archive, int rounds) {
    const std::vector<std::string> names = NamesIn(archive);
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int i = -1; i < rounds; ++i) {
        const std::string& name = names[static_cast<size_t>(i + 1) * 7919 % names.size()];
        std::string first;
        std::string second;
        double a = TimeOf(ReadOurs, archive, name, &first);
        double b = TimeOf(ReadTheirs, archive, name, &second);
        Require(first == second, "the two read different contents");
        if (i < 0) continue;  // the first one loads the library
        ours.push_back(a);
        theirs.push_back(b);
    }
    std::printf("%.0f %.0f\n", Median(ours), Median(theirs));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || std::atoi(argv[2]) < 1) return 2;
    try {
        Measure(std::filesystem::absolute(argv[1]).string(), std::atoi(argv[2]));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kxzip: %s\n", failure.what());
        return 1;
    }
    return 0;
}
