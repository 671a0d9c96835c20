// The two areas: what a name means, and what is there.
#include "Files/IO/LoadSave_Area.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Utf8.h"
#include "Files/Code/Code_Error.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kx {
namespace {

bool IsBlank(char c) {
    return c == ' ';
}

/// What is wrong with a name before its components are looked at; null for nothing.
const char* FaultOf(std::string_view name) {
    if (std::all_of(name.begin(), name.end(), IsBlank)) return "is empty";
    bool absolute = name[0] == '/' || name[0] == '\\';
    auto limit = static_cast<size_t>(absolute ? kMaxLongPath : kMaxPath);
    if (name.size() >= limit) return "is too long";
    if (HasControls(name)) return "holds control characters";
    if (!IsUtf8(name)) return "is not UTF-8";
    return nullptr;
}

/// Works "." and ".." off a path's text.
/// @param fault  set where ".." steps out, or a component is one of the host's own names.
std::string Normalised(std::string_view path, const char** fault) {
    std::vector<std::string_view> components;
    for (size_t start = 0; start <= path.size();) {
        size_t slash = std::min(path.find('/', start), path.size());
        std::string_view component = path.substr(start, slash - start);
        start = slash + 1;
        if (component.empty() || component == ".") continue;
        if (component.substr(0, std::strlen(kTemporaryPrefix)) == kTemporaryPrefix) *fault = "is reserved";
        if (component != "..") {
            components.push_back(component);
        } else if (!components.empty()) {
            components.pop_back();
        } else {
            *fault = "leaves its folder";
        }
    }
    std::string joined;
    for (std::string_view component : components) {
        if (!joined.empty()) joined += '/';
        joined += component;
    }
    return joined;
}

using HeapText = std::unique_ptr<char, decltype(&std::free)>;

std::string Absolute(const char* path) {
    if (path[0] == '/') return path;
    HeapText current(::getcwd(nullptr, 0), &std::free);
    return current ? std::string(current.get()) + "/" + path : path;
}

/// The path without links; empty where there is none.
std::string Canonical(const std::string& path) {
    HeapText canonical(::realpath(path.c_str(), nullptr), &std::free);
    return canonical ? canonical.get() : std::string();
}

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

Descriptor OpenByPath(const std::string& path) {
    return Descriptor(
        RetryInterrupted([&] { return g_systemCalls.openat(AT_FDCWD, path.c_str(), kOpenDirectory, 0); }));
}

/// A directory that may be written but not read cannot be synced.
[[nodiscard]] int SyncNameOf(const std::string& path) {
    Descriptor parent = OpenByPath(path.substr(0, path.rfind('/') + 1));
    if (!parent) return errno == EACCES ? 0 : errno;
    return Sync(g_systemCalls.fsync, parent.Get());
}

/// Makes a directory with everything above it, links on the way followed: an embedder's path, not a script's name.
int MakeRoot(const std::string& path, Durability durability) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string upper = path.substr(0, slash);
        bool made = g_systemCalls.mkdirat(AT_FDCWD, upper.c_str(), 0777) == 0;
        if (!made && errno != EEXIST && errno != EROFS) return errno;
        int reason = made && durability == Durability::full ? SyncNameOf(upper) : 0;
        if (reason) {
            g_systemCalls.unlinkat(AT_FDCWD, upper.c_str(), AT_REMOVEDIR);  // the next try makes and syncs it anew
            return reason;
        }
        if (slash == std::string::npos) return 0;
    }
}

}  // namespace

std::optional<std::string> Area::Place(const char* name, const char** fault) const {
    const char* ignored = nullptr;
    const char** wrong = fault ? fault : &ignored;
    *wrong = name ? nullptr : "is missing";
    if (!*wrong && !IsSet()) *wrong = "has no area to be in";
    if (*wrong) return std::nullopt;

    std::string path(name);
    std::replace(path.begin(), path.end(), '\\', '/');
    if (std::optional<std::string> below = BelowRoot(path)) {
        // The root's own path is the embedder's: no rule for scripts' names is for it.
        const char* faultBelow = below->empty() ? nullptr : FaultOf(*below);
        std::string place = Normalised(*below, &faultBelow);
        if (!faultBelow) return place;
    }
    *wrong = FaultOf(name);
    if (*wrong) return std::nullopt;
    std::string place = Normalised(path, wrong);
    if (*wrong) return std::nullopt;
    if (path[0] != '/') return place;

    std::optional<std::string> below = BelowRoot("/" + place);
    if (!below) *wrong = "leaves its folder";
    return below;
}

std::optional<std::string> Area::BelowRoot(const std::string& absolute) const {
    for (const std::string& root : {m_path, m_canonical}) {
        if (absolute == root) return std::string();
        std::string above = root.back() == '/' ? root : root + "/";
        if (absolute.compare(0, above.size(), above) == 0) return absolute.substr(above.size());
    }
    return std::nullopt;
}

std::string Area::FullPath(const std::string& place) const {
    if (place.empty()) return m_path;
    return m_path.back() == '/' ? m_path + place : m_path + "/" + place;
}

int Area::Contain(const std::string& place) const {
    struct stat status {};
    int reason = Look(place, &status);
    bool tooLongToBeThere = reason == ENAMETOOLONG && LeafOf(place).size() > NAME_MAX;  // but a mask may be
    if (tooLongToBeThere) return Contain(ParentOf(place));
    return reason == ENOENT || reason == ENOTDIR ? 0 : reason;
}

bool Area::HasFile(const std::string& place) const {
    struct stat status {};
    return Look(place, &status) == 0 && S_ISREG(status.st_mode);
}

bool Area::HasDirectory(const std::string& place) const {
    struct stat status {};
    return Look(place, &status) == 0 && S_ISDIR(status.st_mode);
}

void Area::SetPaths(std::string written, std::string canonical) {
    m_path = std::move(written);
    m_canonical = std::move(canonical);
}

int Area::SetPathsOf(const char* path) {
    // Paths are shown as the embedder wrote them, unless working "." and ".." off their text would change their
    // meaning.
    const char* ignored = nullptr;
    std::string absolute = Absolute(path);
    std::string written = "/" + Normalised(absolute, &ignored);
    std::string canonical = Canonical(absolute);
    if (canonical.empty()) return ENOENT;
    bool same = Canonical(written) == canonical;
    SetPaths(same ? written : canonical, canonical);
    return 0;
}

int DirectoryArea::SetRoot(const char* directory, bool create) {
    if (!directory || !*directory) return EINVAL;
    std::string path = Absolute(directory);
    Descriptor root = OpenByPath(path);
    if (!root && errno == ENOENT && create) {
        if (int reason = MakeRoot(path, m_durability)) return reason;
        root = OpenByPath(path);
    }
    if (!root) return errno;

    if (int reason = SetPathsOf(directory)) return reason;
    m_root = std::move(root);
    return 0;
}

int DirectoryArea::Look(const std::string& place, struct stat* status) const {
    Descriptor found = OpenBeneath(Root(), place, O_PATH);
    return found && g_systemCalls.fstat(found.Get(), status) == 0 ? 0 : errno;
}

int DirectoryArea::LookAtLink(const std::string& place, struct stat* status) const {
    Descriptor parent = OpenDirectoryOf(place);
    bool found = parent && g_systemCalls.fstatat(parent.Get(), LeafOf(place).c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
    return found ? 0 : errno;
}

Contents DirectoryArea::Load(const std::string& place) const {
    struct stat status {};
    Descriptor file = OpenToRead(place, &status);
    return file ? LoadOpenFile(file, status, FullPath(place)) : nullptr;
}

Descriptor DirectoryArea::OpenToRead(const std::string& place, struct stat* status) const {
    return OpenFile(place, O_RDONLY, status);
}

int DirectoryArea::List(const std::string& place, std::vector<DirectoryEntry>* entries) const {
    std::vector<DirectoryEntry> all;
    if (int reason = ListDirectoryBeneath(Root(), place, &all)) return reason;
    for (DirectoryEntry& entry : all) {
        if (entry.kind == EntryKind::link) entry.kind = Target(place.empty() ? entry.name : place + "/" + entry.name);
        bool listed = entry.kind == EntryKind::file || entry.kind == EntryKind::directory;
        if (listed) entries->push_back(std::move(entry));
    }
    return 0;
}

/// What a link leads to; a link where that is nothing inside.
EntryKind DirectoryArea::Target(const std::string& link) const {
    if (HasFile(link)) return EntryKind::file;
    return HasDirectory(link) ? EntryKind::directory : EntryKind::link;
}

Descriptor DirectoryArea::OpenFile(const std::string& place, int flags, struct stat* status) const {
    return OpenRegularBeneath(Root(), place, flags, status);
}

Descriptor DirectoryArea::OpenDirectoryOf(const std::string& place) const {
    return OpenBeneath(Root(), ParentOf(place), O_RDONLY | O_DIRECTORY);
}

int DirectoryArea::MakeDirectories(const std::string& place) const {
    return MakeDirectoriesBeneath(Root(), place, m_durability);
}

int DirectoryArea::RemoveTree(const std::string& place) const {
    if (place.empty()) return EBUSY;  // the root
    Descriptor parent = OpenDirectoryOf(place);
    if (!parent) return errno;
    std::string leaf = LeafOf(place);
    struct stat status {};
    if (g_systemCalls.fstatat(parent.Get(), leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (!S_ISLNK(status.st_mode)) return RemoveTreeBeneath(Root(), place);
    if (!HasDirectory(place)) return ENOTDIR;
    return g_systemCalls.unlinkat(parent.Get(), leaf.c_str(), 0) == 0 ? 0 : errno;
}

int DirectoryArea::Replace(const std::string& place, const char* data, int size) const {
    if (int reason = MakeDirectories(ParentOf(place))) return reason;
    Descriptor directory = OpenDirectoryOf(place);
    if (!directory) return errno;
    return ReplaceFile(directory.Get(), LeafOf(place).c_str(), data, static_cast<size_t>(size), m_durability);
}

int DirectoryArea::Rename(const std::string& from, const std::string& to) const {
    if (from.empty() || to.empty()) return EBUSY;  // the root
    if (int reason = RenameBeneath(Root(), from, to)) return reason;
    SyncDirectoryOf(to);  // the new name first: a power cut may leave both names, never none
    SyncDirectoryOf(from);
    return 0;
}

void DirectoryArea::SyncDirectoryOf(const std::string& place) const {
    if (m_durability == Durability::none) return;
    Descriptor directory = OpenDirectoryOf(place);
    int reason = directory ? Sync(g_systemCalls.fsync, directory.Get()) : errno;
    if (reason == 0) return;
    dbg_csol->Output("Renamed, but not on the disk yet: %s (%s)\n", FullPath(place).c_str(), std::strerror(reason));
}

Contents LoadOpenFile(const Descriptor& file, const struct stat& status, const std::string& path) {
    if (status.st_size > kMaxFileBytes) {
        dbg_csol->Output("File too large to open: %s (%lld bytes, at most %d)\n", path.c_str(),
                         static_cast<long long>(status.st_size), kMaxFileBytes);
        errno = EFBIG;
        return nullptr;
    }
    auto contents = std::make_unique<Buffer_Standard>(static_cast<int>(status.st_size), eBuffer_Format_Grow, 1);
    ssize_t count = ReadAll(file.Get(), contents->m_data, static_cast<size_t>(contents->m_size));
    if (count < 0) return nullptr;
    contents->Truncate(static_cast<int>(count));
    return contents;
}

DirectoryArea& SaveArea() {
    static auto* area = new DirectoryArea("save area");  // files are closed while static objects are destroyed
    return *area;
}

namespace {

std::unique_ptr<Area>& Bundle() {
    static auto* area = new std::unique_ptr<Area>(std::make_unique<DirectoryArea>("bundle area"));
    return *area;
}

}  // namespace

Area& BundleArea() {
    return *Bundle();
}

std::unique_ptr<Area> SetBundle(std::unique_ptr<Area> area) {
    return std::exchange(Bundle(), std::move(area));
}

}  // namespace kx
