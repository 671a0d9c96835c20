// Temporary folders and what is in them.
#include "tests/support/Folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace fs = std::filesystem;

namespace kx::test {

TemporaryFolder::TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "kxfiles-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder: " + name);
    m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no such file: " + path.string());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteWholeFile(const fs::path& path, const std::string& contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

std::vector<std::string> NamesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

int OpenDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    int count = 0;
    for (int file = 0; file < static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 4096)); ++file) {
        if (::fcntl(file, F_GETFD) >= 0) ++count;
    }
    return count;
}

bool MakeDevice(const fs::path& path) {
    if (::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0) return true;
    if (errno != EPERM) throw std::runtime_error("no device: " + path.string());
    return false;
}

}  // namespace kx::test
