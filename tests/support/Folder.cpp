// Temporary folders and what is in them.
#include "tests/support/Folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
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
    std::string contents;
    char chunk[16 << 10];
    do {
        file.read(chunk, sizeof chunk);
        contents.append(chunk, static_cast<size_t>(file.gcount()));
    } while (file);
    return contents;
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
    std::vector<pollfd> files(static_cast<size_t>(std::min<rlim_t>(limit.rlim_cur, 4096)));
    for (size_t i = 0; i < files.size(); ++i) {
        files[i].fd = static_cast<int>(i);
    }
    // One call for all of them, which needs no descriptor itself.
    if (::poll(files.data(), files.size(), 0) < 0) throw std::runtime_error("descriptors cannot be counted");
    return static_cast<int>(
        std::count_if(files.begin(), files.end(), [](const pollfd& file) { return (file.revents & POLLNVAL) == 0; }));
}

bool MakeDevice(const fs::path& path) {
    if (::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0) return true;
    if (errno != EPERM) throw std::runtime_error("no device: " + path.string());
    return false;
}

}  // namespace kx::test
