// What a folder holds.
#include "tests/support/Snapshot.h"

#include "tests/support/Folder.h"

#include <stdexcept>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

/// The standard library looks at no file of a year that 32 bits cannot count to.
struct stat StatusOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) throw std::runtime_error("gone: " + path.string());
    return status;
}

std::string Contents(const fs::path& path) {
    switch (StatusOf(path).st_mode & S_IFMT) {
    case S_IFLNK: return "-> " + fs::read_symlink(path).string();
    case S_IFDIR: return "<directory>";
    case S_IFREG: return ReadWholeFile(path);
    default: return "<neither file nor directory>";
    }
}

std::string Everything(const fs::path& path) {
    struct stat status = StatusOf(path);
    return std::to_string(status.st_ino) + " " + std::to_string(status.st_mode) + " " +
           std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec) + " " +
           std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec) + " " + Contents(path);
}

template <class Describe>
Snapshot Below(const fs::path& folder, Describe describe) {
    Snapshot all{{"", describe(folder)}};
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        all[entry.path().lexically_relative(folder).string()] = describe(entry.path());
    }
    return all;
}

}  // namespace

Snapshot ExactSnapshot(const fs::path& folder) {
    return Below(folder, Everything);
}

Snapshot ContentsBelow(const fs::path& folder) {
    Snapshot all = Below(folder, Contents);
    all.erase("");
    return all;
}

}  // namespace kx::test
