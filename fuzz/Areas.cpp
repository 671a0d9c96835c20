// Areas that inputs share.
#include "fuzz/Areas.h"

#include "Files/IO/LoadSave.h"
#include "fuzz/Host.h"
#include "tests/support/Folder.h"

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::fuzz {
namespace {

constexpr char kMemory[] = "/dev/shm";

/// A directory's size on that file system grows with each name; elsewhere it is never so small.
constexpr off_t kEmptyDirectory = 40;

std::string StateOf(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return "gone";
    return std::to_string(status.st_mode) + " " + std::to_string(status.st_size) + " " +
           std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

}  // namespace

const Areas& Areas::Get() {
    static const Areas areas;
    return areas;
}

Areas::Areas() {
    std::string name =
        std::string(fs::is_directory(kMemory) ? kMemory : fs::temp_directory_path().c_str()) + "/kxfuzz-XXXXXX";
    Require(::mkdtemp(name.data()), "there is a folder to work in", name);
    m_folder = name;
    test::WriteWholeFile(Outside("secret"), "nothing may touch this");
    fs::create_directories(Bundle());
    Require(LoadSave::SetSaveArea(Save().c_str()) == 0, "there is a save area");
    Require(LoadSave::SetBundleArea(Bundle().c_str()) == 0, "there is a bundle area");
    m_outside = StateOf(m_folder) + StateOf(Outside()) + StateOf(Outside("secret"));
}

Areas::~Areas() {
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void Areas::Clear() const {
    struct stat status {};
    bool found = ::stat(Save().c_str(), &status) == 0;
    bool mayHoldAny = !found || status.st_size > kEmptyDirectory || status.st_nlink > 2;
    if (!mayHoldAny) return;
    for (const fs::directory_entry& entry : fs::directory_iterator(Save())) {
        bool temporary = entry.path().filename().string().rfind(kTemporaryPrefix, 0) == 0;
        Require(!temporary, "no file is left half written", entry.path());
        fs::remove_all(entry.path());
    }
}

void Areas::RequireOutsideUntouched() const {
    std::string now = StateOf(m_folder) + StateOf(Outside()) + StateOf(Outside("secret"));
    Require(now == m_outside, "nothing outside the areas is touched", m_outside + "\n" + now);
}

}  // namespace kx::fuzz
