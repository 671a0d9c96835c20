// The two areas: what a name means, and what is there.
#include "Files/IO/LoadSave_Area.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Utf8.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace kx {
namespace {

bool IsBlank(char c) {
    return c == ' ';
}

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

/// What is wrong with a name before its components are looked at; null for nothing.
const char* FaultOf(std::string_view name) {
    if (std::all_of(name.begin(), name.end(), IsBlank)) return "is empty";
    if (name.size() >= kMaxPath) return "is too long";
    if (std::any_of(name.begin(), name.end(), IsControl)) return "holds control characters";
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

/// Makes a directory with everything above it, links on the way followed: an embedder's path, not a script's name.
int MakeRoot(const std::string& path) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string upper = path.substr(0, slash);
        if (g_systemCalls.mkdirat(AT_FDCWD, upper.c_str(), 0777) != 0 && errno != EEXIST && errno != EROFS) {
            return errno;
        }
        if (slash == std::string::npos) return 0;
    }
}

}  // namespace

int Area::SetRoot(const char* directory, bool create) {
    if (!directory || !*directory) return EINVAL;
    std::string path = Absolute(directory);
    int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    auto open = [&] {
        return RetryInterrupted([&] { return g_systemCalls.openat(AT_FDCWD, path.c_str(), flags, 0); });
    };
    Descriptor root(open());
    if (!root && errno == ENOENT && create) {
        if (int reason = MakeRoot(path)) return reason;
        root = Descriptor(open());
    }
    if (!root) return errno;

    // Paths are shown as the embedder wrote them, unless working "." and ".." off their text would change their
    // meaning.
    const char* ignored = nullptr;
    std::string written = "/" + Normalised(path, &ignored);
    m_canonical = Canonical(path);
    m_path = Canonical(written) == m_canonical ? written : m_canonical;
    m_root = std::move(root);
    return 0;
}

std::optional<std::string> Area::Place(const char* name, const char** fault) const {
    const char* ignored = nullptr;
    const char** wrong = fault ? fault : &ignored;
    *wrong = name ? FaultOf(name) : "is missing";
    if (!*wrong && !IsSet()) *wrong = "has no area to be in";
    if (*wrong) return std::nullopt;

    std::string path(name);
    std::replace(path.begin(), path.end(), '\\', '/');
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
    if (OpenBeneath(Root(), place, O_PATH)) return 0;
    return errno == ENOENT ? 0 : errno;
}

bool Area::HasFile(const std::string& place) const {
    struct stat status {};
    Descriptor file = OpenBeneath(Root(), place, O_PATH);
    return file && g_systemCalls.fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
}

bool Area::HasDirectory(const std::string& place) const {
    return static_cast<bool>(OpenBeneath(Root(), place, O_PATH | O_DIRECTORY));
}

Descriptor Area::OpenFile(const std::string& place, int flags, struct stat* status) const {
    return OpenRegularBeneath(Root(), place, flags, status);
}

Descriptor Area::OpenDirectoryOf(const std::string& place) const {
    return OpenBeneath(Root(), ParentOf(place), O_RDONLY | O_DIRECTORY);
}

int Area::MakeDirectories(const std::string& place) const {
    return MakeDirectoriesBeneath(Root(), place, m_durability);
}

int Area::Replace(const std::string& place, const char* data, int size) const {
    if (int reason = MakeDirectories(ParentOf(place))) return reason;
    Descriptor directory = OpenDirectoryOf(place);
    if (!directory) return errno;
    return ReplaceFile(directory.Get(), LeafOf(place).c_str(), data, static_cast<size_t>(size), m_durability);
}

Area& SaveArea() {
    static Area area("save area");
    return area;
}

Area& BundleArea() {
    static Area area("bundle area");
    return area;
}

}  // namespace kx
