// A bundle that is in memory.
#include "tests/support/MemoryArea.h"

#include <cerrno>
#include <set>

namespace kx::test {
namespace {

constexpr char kRoot[] = "/nowhere/game.archive";

bool LiesBelow(const std::string& place, const std::string& directory) {
    return directory.empty() || place.rfind(directory + "/", 0) == 0;
}

}  // namespace

MemoryArea::MemoryArea(Files files) : Area("bundle area"), m_files(std::move(files)) {
    SetPaths(kRoot, kRoot);
}

int MemoryArea::Look(const std::string& place, struct stat* status) const {
    *status = {};
    auto file = m_files.find(place);
    if (file != m_files.end()) {
        status->st_mode = S_IFREG | 0444;
        status->st_size = static_cast<off_t>(file->second.size());
        return 0;
    }
    for (const auto& each : m_files) {
        if (!LiesBelow(each.first, place)) continue;
        status->st_mode = S_IFDIR | 0555;
        return 0;
    }
    return ENOENT;
}

Contents MemoryArea::Load(const std::string& place) const {
    auto file = m_files.find(place);
    if (file == m_files.end()) {
        errno = ENOENT;
        return nullptr;
    }
    auto contents = std::make_unique<Buffer_Standard>(0, eBuffer_Format_Grow, 1);
    contents->Write(file->second.data(), static_cast<int>(file->second.size()));
    contents->Seek(eBuffer_Start, 0);
    return contents;
}

Descriptor MemoryArea::OpenToRead(const std::string& /*place*/, struct stat* /*status*/) const {
    errno = ENOENT;
    return Descriptor();
}

int MemoryArea::List(const std::string& place, std::vector<DirectoryEntry>* entries) const {
    std::set<std::string> directories;
    size_t start = place.empty() ? 0 : place.size() + 1;
    for (const auto& each : m_files) {
        if (!LiesBelow(each.first, place)) continue;
        std::string rest = each.first.substr(start);
        size_t slash = rest.find('/');
        if (slash == std::string::npos) {
            entries->push_back({rest, EntryKind::file});
        } else {
            directories.insert(rest.substr(0, slash));
        }
    }
    for (const std::string& name : directories) {
        entries->push_back({name, EntryKind::directory});
    }
    return 0;
}

MemoryBundle::MemoryBundle(Files files) : m_before(SetBundle(std::make_unique<MemoryArea>(std::move(files)))) {}

MemoryBundle::~MemoryBundle() {
    SetBundle(std::move(m_before));
}

}  // namespace kx::test
