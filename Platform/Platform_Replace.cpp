// Replacing files whole.
#include "Platform/Platform_Replace.h"

#include "Files/Base/Limits.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kx {
namespace {

constexpr mode_t kFileMode = 0666;  // less the process's umask
constexpr mode_t kPermissionBits = 07777;
constexpr size_t kCopyBytes = 64 * 1024;

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

/// True where an unnamed file cannot be given a name at all: without /proc, or where links are not known or not
/// allowed.
bool CannotLink(int reason) {
    return reason == ENOENT || reason == EPERM || reason == EXDEV || reason == EOPNOTSUPP;
}

/// The lock tells a sweep that the file's writer is alive. File systems without locks do without it.
void Guard(const Descriptor& file) {
    g_systemCalls.flock(file.Get(), LOCK_EX | LOCK_NB);
}

/// Tries names until one is not taken.
/// @return 0 with `name` set, or an errno value.
template <class Try>
[[nodiscard]] int WithFreshName(std::string* name, Try attempt) {
    static std::atomic<unsigned int> counter{0};
    int reason = EEXIST;
    for (int i = 0; i < kMaxRetries && reason == EEXIST; ++i) {
        *name = kTemporaryPrefix + std::to_string(getpid()) + "-" + std::to_string(++counter);
        reason = attempt(name->c_str());
    }
    return reason;
}

}  // namespace

FileReplacement::FileReplacement(int directory, std::string leaf, Durability durability)
    : m_directory(directory), m_leaf(std::move(leaf)), m_durability(durability) {}

FileReplacement::~FileReplacement() {
    int reason = errno;
    RemoveTemporary();
    errno = reason;
}

int FileReplacement::Begin() {
    if (int reason = ReadOld()) return reason;
    int flags = O_TMPFILE | O_RDWR | O_CLOEXEC;
    m_file = Descriptor(RetryInterrupted([&] { return g_systemCalls.openat(m_directory, ".", flags, kFileMode); }));
    bool unsupported = !m_file && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL || errno == ENOENT);
    if (unsupported) return CreateNamed();
    if (!m_file) return errno;
    Guard(m_file);
    return KeepPermissions();
}

int FileReplacement::Write(const void* data, size_t size) {
    if (m_failure == 0) m_failure = WriteAll(m_file.Get(), static_cast<const char*>(data), size);
    return m_failure;
}

int FileReplacement::Commit() {
    if (m_failure) return m_failure;
    if (int reason = FinishContents()) return reason;
    int reason = EEXIST;
    if (!m_named && !m_exists) reason = Link(m_leaf.c_str());
    if (reason == 0) return SettleIn(Place::fresh);
    if (reason == EEXIST) reason = m_named ? 0 : GiveName();
    if (CannotLink(reason)) reason = CopyToNamed();
    return reason ? reason : MoveIntoPlace();
}

/// What stands under the name now: its permission bits where it is a file to be replaced.
int FileReplacement::ReadOld() {
    struct stat old {};
    bool exists = g_systemCalls.fstatat(m_directory, m_leaf.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
    m_exists = exists || errno != ENOENT;
    if (!exists) return m_exists ? errno : 0;
    if (S_ISDIR(old.st_mode)) return EISDIR;
    if (!S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode)) return ENXIO;
    if (S_ISREG(old.st_mode)) m_permissions = old.st_mode & kPermissionBits;
    return 0;
}

int FileReplacement::CreateNamed() {
    int reason = WithFreshName(&m_name, [&](const char* name) {
        int flags = O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC;
        m_file =
            Descriptor(RetryInterrupted([&] { return g_systemCalls.openat(m_directory, name, flags, kFileMode); }));
        return m_file ? 0 : errno;
    });
    if (reason) return reason;
    m_named = true;
    Guard(m_file);
    return KeepPermissions();
}

int FileReplacement::KeepPermissions() {
    return m_permissions && g_systemCalls.fchmod(m_file.Get(), *m_permissions) != 0 ? errno : 0;
}

int FileReplacement::FinishContents() {
    if (m_modified) {
        const timespec times[] = {{0, UTIME_OMIT}, {*m_modified, 0}};  // of the last access, of the last change
        g_systemCalls.futimens(m_file.Get(), times);
    }
    return m_durability != Durability::none ? Sync(g_systemCalls.fdatasync, m_file.Get()) : 0;
}

/// Gives the unnamed file a name that nothing has.
int FileReplacement::Link(const char* name) {
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", m_file.Get());
    return g_systemCalls.linkat(AT_FDCWD, self, m_directory, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

int FileReplacement::GiveName() {
    int reason = WithFreshName(&m_name, [&](const char* name) { return Link(name); });
    m_named = reason == 0;
    return reason;
}

/// The way on where an unnamed file was written and can get no name.
int FileReplacement::CopyToNamed() {
    Descriptor unnamed = std::move(m_file);
    if (int reason = CreateNamed()) return reason;
    std::vector<char> chunk(kCopyBytes);
    for (off_t offset = 0;;) {
        ssize_t count =
            RetryInterrupted([&] { return g_systemCalls.pread(unnamed.Get(), chunk.data(), chunk.size(), offset); });
        if (count < 0) return errno;
        if (count == 0) return FinishContents();
        if (int reason = WriteAll(m_file.Get(), chunk.data(), static_cast<size_t>(count))) return reason;
        offset += count;
    }
}

/// Puts the file under its final name and keeps the old one, if there is one, under the temporary name until the new
/// one is on the disk: the step can be taken back as long as anything can still fail.
int FileReplacement::MoveIntoPlace() {
    Place place = Place::exchanged;
    if (Rename(m_name, m_leaf, RENAME_EXCHANGE) != 0) {
        if (errno != ENOENT && errno != EINVAL && errno != ENOSYS) return errno;
        place = errno == ENOENT ? Place::fresh : Place::overwritten;
        if (Rename(m_name, m_leaf, 0) != 0) return errno;
        m_named = false;
    }
    return SettleIn(place);
}

/// Brings the final name to the disk, or takes it back.
int FileReplacement::SettleIn(Place place) {
    int reason = Settle();
    if (reason) TakeBack(place);
    bool cleared = RemoveTemporary();
    bool wasDirectory = !cleared && errno == EISDIR;  // made there since: nothing of it may be lost
    if (!wasDirectory || reason) return reason;
    TakeBack(place);
    m_named = true;
    RemoveTemporary();
    return EISDIR;
}

/// @return false where it is still there.
bool FileReplacement::RemoveTemporary() {
    bool named = std::exchange(m_named, false);
    return !named || g_systemCalls.unlinkat(m_directory, m_name.c_str(), 0) == 0;
}

int FileReplacement::Rename(const std::string& from, const std::string& to, unsigned int flags) {
    return g_systemCalls.renameat2(m_directory, from.c_str(), m_directory, to.c_str(), flags);
}

/// Some file systems report a failed write only at the close.
int FileReplacement::Settle() {
    int reason = m_durability == Durability::full ? Sync(g_systemCalls.fsync, m_directory) : 0;
    int closed = g_systemCalls.close(m_file.Release());
    if (reason) return reason;
    return closed == 0 || errno == EINTR ? 0 : errno;
}

/// A file system that cannot exchange names has lost the old file by now: the new one stays there.
void FileReplacement::TakeBack(Place place) {
    if (place == Place::exchanged) Rename(m_name, m_leaf, RENAME_EXCHANGE);
    if (place == Place::fresh) g_systemCalls.unlinkat(m_directory, m_leaf.c_str(), 0);
}

int ReplaceFile(int directory, const char* leaf, const void* data, size_t size, Durability durability) {
    FileReplacement replacement(directory, leaf, durability);
    if (int reason = replacement.Begin()) return reason;
    if (int reason = replacement.Write(data, size)) return reason;
    return replacement.Commit();
}

}  // namespace kx
