// Opening beneath a root, making directories, and replacing files whole.
#include "Platform/Platform_File.h"

#include "Files/Base/Limits.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace kx {

const char kTemporaryPrefix[] = ".kxtmp-";

namespace {

constexpr mode_t kFileMode = 0666;       // less the process's umask
constexpr mode_t kDirectoryMode = 0777;  // less the process's umask
constexpr mode_t kPermissionBits = 07777;

bool HasTemporaryPrefix(const char* leaf) {
    return std::strncmp(leaf, kTemporaryPrefix, std::strlen(kTemporaryPrefix)) == 0;
}

/// The way of kernels without openat2: one component at a time, through no link at all.
Descriptor OpenByWalking(int root, const std::string& name, int flags, mode_t mode) {
    Descriptor parent;
    int directory = root;
    size_t start = 0;
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', start)) {
        std::string component = name.substr(start, slash - start);
        int step = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        Descriptor next(RetryInterrupted([&] { return g_systemCalls.openat(directory, component.c_str(), step, 0); }));
        if (!next) return next;
        parent = std::move(next);
        directory = parent.Get();
        start = slash + 1;
    }
    std::string leaf = start < name.size() ? name.substr(start) : ".";
    int last = flags | O_NOFOLLOW | O_CLOEXEC;
    return Descriptor(RetryInterrupted([&] { return g_systemCalls.openat(directory, leaf.c_str(), last, mode); }));
}

/// An O_PATH open without following gives the link itself, which is no answer here.
Descriptor RefuseLink(Descriptor file) {
    struct stat status {};
    if (file && g_systemCalls.fstat(file.Get(), &status) == 0 && S_ISLNK(status.st_mode)) {
        errno = ELOOP;
        return Descriptor();
    }
    return file;
}

[[nodiscard]] int WriteAll(int file, const char* data, size_t size) {
    while (size > 0) {
        ssize_t written = RetryInterrupted([&] { return g_systemCalls.write(file, data, size); });
        if (written < 0) return errno;
        if (written == 0) return EIO;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return 0;
}

[[nodiscard]] int Sync(int (*call)(int), int file) {
    return RetryInterrupted([&] { return call(file); }) == 0 ? 0 : errno;
}

/// A file on its way to replace another: unnamed where the file system can, else under a name that no script can say.
/// What still has a name when it is destroyed is removed.
class Replacement {
public:
    explicit Replacement(int directory) : m_directory(directory) {}
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement() {
        if (!m_named) return;
        int reason = errno;
        g_systemCalls.unlinkat(m_directory, m_name.c_str(), 0);
        errno = reason;
    }

    [[nodiscard]] int Create() {
        int flags = O_TMPFILE | O_WRONLY | O_CLOEXEC;
        m_file = Descriptor(RetryInterrupted([&] { return g_systemCalls.openat(m_directory, ".", flags, kFileMode); }));
        bool unsupported = !m_file && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL || errno == ENOENT);
        if (unsupported) return CreateNamed();
        if (!m_file) return errno;
        Guard();
        return 0;
    }

    [[nodiscard]] int CreateNamed() {
        int reason = WithFreshName([&](const char* name) {
            int flags = O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC;
            m_file =
                Descriptor(RetryInterrupted([&] { return g_systemCalls.openat(m_directory, name, flags, kFileMode); }));
            return m_file ? 0 : errno;
        });
        if (reason) return reason;
        m_named = true;
        Guard();
        return 0;
    }

    [[nodiscard]] int Fill(const void* data, size_t size, const mode_t* permissions, Durability durability) {
        if (permissions && g_systemCalls.fchmod(m_file.Get(), *permissions) != 0) return errno;
        int reason = WriteAll(m_file.Get(), static_cast<const char*>(data), size);
        if (reason || durability == Durability::none) return reason;
        return Sync(g_systemCalls.fdatasync, m_file.Get());
    }

    [[nodiscard]] int GiveName() {
        if (m_named) return 0;
        char self[32];
        std::snprintf(self, sizeof self, "/proc/self/fd/%d", m_file.Get());
        int reason = WithFreshName([&](const char* name) {
            return g_systemCalls.linkat(AT_FDCWD, self, m_directory, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
        });
        m_named = reason == 0;
        return reason;
    }

    /// Puts the file under its final name and keeps the old one, if there is one, under the temporary name until the
    /// new one is on the disk: the step can be taken back as long as anything can still fail.
    [[nodiscard]] int MoveTo(const char* leaf, Durability durability) {
        Place place = Place::exchanged;
        if (Rename(m_name.c_str(), leaf, RENAME_EXCHANGE) != 0) {
            if (errno != ENOENT && errno != EINVAL && errno != ENOSYS) return errno;
            place = errno == ENOENT ? Place::fresh : Place::overwritten;
            if (Rename(m_name.c_str(), leaf, 0) != 0) return errno;
            m_named = false;
        }
        int reason = Settle(durability);
        if (reason) TakeBack(leaf, place);
        return reason;
    }

private:
    enum class Place { exchanged, fresh, overwritten };

    int Rename(const char* from, const char* to, unsigned int flags) {
        return g_systemCalls.renameat2(m_directory, from, m_directory, to, flags);
    }

    /// Some file systems report a failed write only here.
    [[nodiscard]] int Settle(Durability durability) {
        int reason = durability == Durability::full ? Sync(g_systemCalls.fsync, m_directory) : 0;
        int closed = g_systemCalls.close(m_file.Release());
        if (reason) return reason;
        return closed == 0 || errno == EINTR ? 0 : errno;
    }

    /// A file system that cannot exchange names has lost the old file by now: the new one stays there.
    void TakeBack(const char* leaf, Place place) {
        if (place == Place::exchanged) Rename(m_name.c_str(), leaf, RENAME_EXCHANGE);
        if (place == Place::fresh) g_systemCalls.unlinkat(m_directory, leaf, 0);
    }

    /// The lock tells a sweep that the file's writer is alive. File systems without locks do without it.
    void Guard() { g_systemCalls.flock(m_file.Get(), LOCK_EX | LOCK_NB); }

    template <class Try>
    [[nodiscard]] int WithFreshName(Try attempt) {
        static std::atomic<unsigned int> counter{0};
        int reason = EEXIST;
        for (int i = 0; i < kMaxRetries && reason == EEXIST; ++i) {
            m_name = kTemporaryPrefix + std::to_string(getpid()) + "-" + std::to_string(++counter);
            reason = attempt(m_name.c_str());
        }
        return reason;
    }

    int m_directory;
    Descriptor m_file;
    std::string m_name;
    bool m_named = false;
};

/// True where an unnamed file cannot be given a name at all: without /proc, or where links are not known or not
/// allowed.
bool CannotLink(int reason) {
    return reason == ENOENT || reason == EPERM || reason == EXDEV || reason == EOPNOTSUPP;
}

/// What stands under the name now: its permission bits where it is a file to be replaced.
[[nodiscard]] int OldPermissions(int directory, const char* leaf, mode_t* permissions, bool* exists) {
    struct stat old {};
    *exists = g_systemCalls.fstatat(directory, leaf, &old, AT_SYMLINK_NOFOLLOW) == 0;
    if (!*exists) return errno == ENOENT ? 0 : errno;
    if (S_ISDIR(old.st_mode)) return EISDIR;
    if (!S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode)) return ENXIO;
    *exists = S_ISREG(old.st_mode);
    *permissions = old.st_mode & kPermissionBits;
    return 0;
}

[[nodiscard]] int MakeOneDirectory(int root, const std::string& name, Durability durability) {
    Descriptor parent = OpenBeneath(root, ParentOf(name), O_RDONLY | O_DIRECTORY);
    if (!parent) return errno;
    if (g_systemCalls.mkdirat(parent.Get(), LeafOf(name).c_str(), kDirectoryMode) != 0) {
        return errno == EEXIST ? 0 : errno;  // made by somebody else meanwhile
    }
    return durability == Durability::full ? Sync(g_systemCalls.fsync, parent.Get()) : 0;
}

/// Calls back for every entry of a directory but "." and "..".
template <class Visit>
void ForEachEntry(Descriptor directory, Visit visit) {
    DIR* list = directory ? g_systemCalls.fdopendir(directory.Get()) : nullptr;
    if (!list) return;
    directory.Release();  // the list closes it
    while (const dirent* entry = g_systemCalls.readdir(list)) {
        bool dots = std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
        if (!dots) visit(*entry);
    }
    g_systemCalls.closedir(list);
}

bool IsDirectory(int directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status {};
    return g_systemCalls.fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

void RemoveIfAbandoned(int directory, const char* leaf) {
    int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Descriptor file(g_systemCalls.openat(directory, leaf, flags, 0));
    if (!file || g_systemCalls.flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return;
    g_systemCalls.unlinkat(directory, leaf, 0);
}

}  // namespace

Descriptor OpenBeneath(int root, const std::string& name, int flags, mode_t mode) {
    open_how how{};
    how.flags = static_cast<unsigned int>(flags | O_CLOEXEC);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const char* path = name.empty() ? "." : name.c_str();

    int file = -1;
    for (int i = 0; i < kMaxRetries; ++i) {
        file = RetryInterrupted([&] { return g_systemCalls.openat2(root, path, &how); });
        bool raced = file < 0 && errno == EAGAIN;  // something on the way was renamed: ask again
        if (!raced) break;
    }
    // Some containers' filters answer EPERM for a call that they do not know.
    bool missing = file < 0 && (errno == ENOSYS || errno == EPERM);
    if (!missing) return Descriptor(file);

    Descriptor walked = OpenByWalking(root, name, flags, mode);
    return (flags & O_PATH) ? RefuseLink(std::move(walked)) : std::move(walked);
}

Descriptor OpenRegularBeneath(int root, const std::string& name, int flags, struct stat* status) {
    Descriptor file = OpenBeneath(root, name, flags | O_NONBLOCK | O_NOCTTY);
    if (!file) return file;
    if (g_systemCalls.fstat(file.Get(), status) != 0) return Descriptor();
    if (S_ISREG(status->st_mode)) return file;
    errno = S_ISDIR(status->st_mode) ? EISDIR : ENXIO;
    return Descriptor();
}

ssize_t ReadAll(int file, char* data, size_t size) {
    size_t total = 0;
    while (total < size) {
        ssize_t count = RetryInterrupted([&] { return g_systemCalls.read(file, data + total, size - total); });
        if (count < 0) return -1;
        if (count == 0) break;
        total += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(total);
}

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

int ReplaceFile(int directory, const char* leaf, const void* data, size_t size, Durability durability) {
    mode_t permissions = 0;
    bool exists = false;
    if (int reason = OldPermissions(directory, leaf, &permissions, &exists)) return reason;
    const mode_t* keep = exists ? &permissions : nullptr;

    Replacement unnamed(directory);
    if (int reason = unnamed.Create()) return reason;
    if (int reason = unnamed.Fill(data, size, keep, durability)) return reason;
    int reason = unnamed.GiveName();
    if (reason == 0) return unnamed.MoveTo(leaf, durability);
    if (!CannotLink(reason)) return reason;

    Replacement named(directory);
    if (int failure = named.CreateNamed()) return failure;
    if (int failure = named.Fill(data, size, keep, durability)) return failure;
    return named.MoveTo(leaf, durability);
}

void SweepTemporaries(int root) {
    std::vector<std::string> pending{""};
    while (!pending.empty()) {
        std::string name = std::move(pending.back());
        pending.pop_back();
        Descriptor directory = OpenBeneath(root, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        int parent = directory.Get();
        ForEachEntry(std::move(directory), [&](const dirent& entry) {
            if (HasTemporaryPrefix(entry.d_name)) {
                RemoveIfAbandoned(parent, entry.d_name);
            } else if (IsDirectory(parent, entry)) {
                pending.push_back(name.empty() ? entry.d_name : name + "/" + entry.d_name);
            }
        });
    }
}

std::string ParentOf(const std::string& name) {
    size_t slash = name.rfind('/');
    return slash == std::string::npos ? std::string() : name.substr(0, slash);
}

std::string LeafOf(const std::string& name) {
    size_t slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

}  // namespace kx
