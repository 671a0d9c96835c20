// What a folder holds.
#include "tests/support/Snapshot.h"

#include "tests/support/Folder.h"

#include <stdexcept>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

std::string Contents(const fs::path& path) {
    fs::file_status status = fs::symlink_status(path);
    if (fs::is_symlink(status)) return "-> " + fs::read_symlink(path).string();
    if (fs::is_directory(status)) return "<directory>";
    return fs::is_regular_file(status) ? ReadWholeFile(path) : "<neither file nor directory>";
}

std::string Everything(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) throw std::runtime_error("gone: " + path.string());
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
