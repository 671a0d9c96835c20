// A few files, as they should be.
#include "fuzz/SavedFiles.h"

#include "fuzz/Areas.h"
#include "fuzz/Host.h"
#include "tests/support/Folder.h"

#include <fcntl.h>
#include <unistd.h>

namespace kx::fuzz {
namespace {

constexpr size_t kMostBytes = 64 << 10;

const Areas& Prepared() {
    static const Areas& areas = []() -> const Areas& {
        test::WriteWholeFile(Areas::Get().Bundle(SavedFiles::kNames[SavedFiles::kCount - 1]), SavedFiles::kShipped);
        return Areas::Get();
    }();
    return areas;
}

/// A file's bytes; nothing where there is none.
std::optional<std::string> OnDisk(const std::string& path) {
    static char bytes[kMostBytes];
    int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return std::nullopt;
    ssize_t count = ::read(file, bytes, sizeof bytes);
    ::close(file);
    Require(count >= 0, "a file can be read", path);
    return std::string(bytes, static_cast<size_t>(count));
}

}  // namespace

SavedFiles::SavedFiles() {
    Prepared();
}

SavedFiles::~SavedFiles() {
    for (const auto& file : m_saved) {
        ::unlink(Prepared().Save(file.first).c_str());
    }
    ::rmdir(Prepared().Save("folder").c_str());
}

std::optional<std::string> SavedFiles::Read(const std::string& name) const {
    auto saved = m_saved.find(name);
    if (saved != m_saved.end()) return saved->second;
    return IsShipped(name) ? std::optional<std::string>(kShipped) : std::nullopt;
}

void SavedFiles::RequireOnDisk() const {
    for (const char* name : kNames) {
        auto saved = m_saved.find(name);
        std::optional<std::string> there = OnDisk(Prepared().Save(name));
        bool same = saved == m_saved.end() ? !there : there == saved->second;
        Require(same, "a file holds what was saved", same ? "" : name + (": " + there.value_or("missing")));
    }
    Require(OnDisk(Prepared().Bundle(kNames[kCount - 1])) == kShipped, "the bundle stays as it is");
}

}  // namespace kx::fuzz
