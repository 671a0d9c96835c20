// Directories beneath a root: making, listing, removing, sweeping.
#include "Platform/Platform_Directory.h"

#include "Files/Base/Limits.h"

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>

namespace kx {
namespace {

constexpr mode_t kDirectoryMode = 0777;  // less the process's umask

constexpr size_t kMaxStretch = 2048;  // bytes of a name for one open; the system takes twice as many

bool HasTemporaryPrefix(const char* leaf) {
    return std::strncmp(leaf, kTemporaryPrefix, std::strlen(kTemporaryPrefix)) == 0;
}

std::string Below(const std::string& directory, const char* leaf) {
    return directory.empty() ? leaf : directory + "/" + leaf;
}

[[nodiscard]] int MakeOneDirectory(int root, const std::string& name, Durability durability) {
    Descriptor parent = OpenBeneath(root, ParentOf(name), O_RDONLY | O_DIRECTORY);
    if (!parent) return errno;
    if (g_systemCalls.mkdirat(parent.Get(), LeafOf(name).c_str(), kDirectoryMode) != 0) {
        return errno == EEXIST ? 0 : errno;  // made by somebody else meanwhile
    }
    return durability == Durability::full ? Sync(g_systemCalls.fsync, parent.Get()) : 0;
}

struct ListCloser {
    void operator()(DIR* list) const {
        int reason = errno;
        g_systemCalls.closedir(list);
        errno = reason;
    }
};

/// Calls back for every entry of a directory but "." and "..".
/// @return 0, or an errno value where the directory cannot be read to its end.
template <class Visit>
int ForEachEntry(Descriptor directory, Visit visit) {
    std::unique_ptr<DIR, ListCloser> list(directory ? g_systemCalls.fdopendir(directory.Get()) : nullptr);
    if (!list) return errno;
    directory.Release();  // the list closes it
    errno = 0;
    while (const dirent* entry = g_systemCalls.readdir(list.get())) {
        bool dots = std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
        if (!dots) visit(*entry);
        errno = 0;
    }
    return errno;
}

EntryKind KindOf(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::file;
    if (S_ISDIR(mode)) return EntryKind::directory;
    return S_ISLNK(mode) ? EntryKind::link : EntryKind::other;
}

/// The kind that the list tells, or where the file system leaves it out, the kind that a look at the entry tells.
EntryKind KindOf(int directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return KindOf(DTTOIF(entry.d_type));
    struct stat status {};
    if (g_systemCalls.fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return EntryKind::other;
    return KindOf(status.st_mode);
}

/// Opens a directory that may lie deeper than a path can say, a stretch of its name at a time.
Descriptor OpenDeep(int root, const std::string& name, int flags) {
    Descriptor from;
    int directory = root;
    size_t start = 0;
    while (name.size() - start > kMaxStretch) {
        size_t slash = name.rfind('/', start + kMaxStretch);
        if (slash == std::string::npos || slash <= start) break;
        std::string stretch = name.substr(start, slash - start);
        Descriptor next = OpenBeneath(directory, stretch, O_PATH | O_DIRECTORY | O_NOFOLLOW);
        if (!next) return next;
        from = std::move(next);
        directory = from.Get();
        start = slash + 1;
    }
    return OpenBeneath(directory, name.substr(start), flags | O_DIRECTORY);
}

/// Removes everything from a directory that is no directory itself.
/// @param below  gets the names, beneath the root, of the directories in it.
/// @return 0, or an errno value where something had to stay.
int RemoveFilesIn(int root, const std::string& name, std::vector<std::string>* below) {
    Descriptor directory = OpenDeep(root, name, O_RDONLY | O_NOFOLLOW);
    if (!directory) return errno;
    int parent = directory.Get();
    int failure = 0;
    int unread = ForEachEntry(std::move(directory), [&](const dirent& entry) {
        if (KindOf(parent, entry) == EntryKind::directory) {
            below->push_back(Below(name, entry.d_name));
        } else if (g_systemCalls.unlinkat(parent, entry.d_name, 0) != 0 && errno != ENOENT) {
            failure = errno;
        }
    });
    return failure ? failure : unread;
}

int RemoveEmptyDirectory(int root, const std::string& name) {
    Descriptor parent = OpenDeep(root, ParentOf(name), O_RDONLY);
    if (!parent) return errno;
    return g_systemCalls.unlinkat(parent.Get(), LeafOf(name).c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

void RemoveIfAbandoned(int directory, const char* leaf) {
    int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Descriptor file(g_systemCalls.openat(directory, leaf, flags, 0));
    if (!file || g_systemCalls.flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return;
    g_systemCalls.unlinkat(directory, leaf, 0);
}

}  // namespace

int MakeDirectoriesBeneath(int root, const std::string& name, Durability durability) {
    if (OpenBeneath(root, name, O_PATH | O_DIRECTORY)) return 0;
    if (errno != ENOENT) return errno;
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
        std::string upper = name.substr(0, slash);
        if (OpenBeneath(root, upper, O_PATH | O_DIRECTORY)) continue;
        if (errno != ENOENT) return errno;
        if (int reason = MakeOneDirectory(root, upper, durability)) return reason;
    }
    if (int reason = MakeOneDirectory(root, name, durability)) return reason;
    return OpenBeneath(root, name, O_PATH | O_DIRECTORY) ? 0 : errno;
}

int ListDirectoryBeneath(int root, const std::string& name, std::vector<DirectoryEntry>* entries) {
    Descriptor directory = OpenBeneath(root, name, O_RDONLY | O_DIRECTORY);
    if (!directory) return errno;
    int parent = directory.Get();
    return ForEachEntry(std::move(directory), [&](const dirent& entry) {
        if (!HasTemporaryPrefix(entry.d_name)) entries->push_back({entry.d_name, KindOf(parent, entry)});
    });
}

int RemoveTreeBeneath(int root, const std::string& name) {
    struct Pending {
        std::string name;
        bool emptied;
        int failure;  // of its emptying
    };
    int reason = 0;
    int retries = kMaxRetries;
    std::vector<Pending> pending{{name, false, 0}};
    while (!pending.empty()) {
        Pending& next = pending.back();
        if (!next.emptied) {
            std::vector<std::string> below;
            next.emptied = true;
            next.failure = RemoveFilesIn(root, next.name, &below);
            for (std::string& each : below) {
                pending.push_back({std::move(each), false, 0});
            }
            continue;
        }
        int failure = RemoveEmptyDirectory(root, next.name);
        bool refilled = failure == ENOTEMPTY && next.failure == 0 && reason == 0;
        if (refilled && retries-- > 0) {  // by somebody else, or the list left out what was there
            next.emptied = false;
            continue;
        }
        if (failure && reason == 0) reason = next.failure ? next.failure : failure;
        pending.pop_back();
    }
    return reason;
}

void SweepTemporaries(int root) {
    std::vector<std::string> pending{""};
    while (!pending.empty()) {
        std::string name = std::move(pending.back());
        pending.pop_back();
        Descriptor directory = OpenBeneath(root, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        int parent = directory.Get();
        int unread = ForEachEntry(std::move(directory), [&](const dirent& entry) {
            if (HasTemporaryPrefix(entry.d_name)) {
                RemoveIfAbandoned(parent, entry.d_name);
            } else if (KindOf(parent, entry) == EntryKind::directory) {
                pending.push_back(Below(name, entry.d_name));
            }
        });
        static_cast<void>(unread);  // what cannot be read is not swept
    }
}

}  // namespace kx
