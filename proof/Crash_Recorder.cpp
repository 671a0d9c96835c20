// Writes down what system calls change.
#include "proof/Crash_Recorder.h"

#include "Platform/Platform_File.h"
#include "tests/support/Folder.h"

#include <cstdio>
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

Recorder* g_recorder = nullptr;

const SystemCalls& Real() {
    return g_recorder->Real();
}

int OpenAt2(int directory, const char* path, const open_how* how) {
    int file = Real().openat2(directory, path, how);
    return g_recorder->Opened(directory, path, static_cast<unsigned int>(how->flags), file);
}

int OpenAt(int directory, const char* path, int flags, mode_t mode) {
    int file = Real().openat(directory, path, flags, mode);
    return g_recorder->Opened(directory, path, static_cast<unsigned int>(flags), file);
}

ssize_t Write(int file, const void* data, size_t size) {
    off_t offset = ::lseek(file, 0, SEEK_CUR);
    ssize_t count = Real().write(file, data, size);
    if (count > 0) g_recorder->Written(file, offset, data, count);
    return count;
}

int FDataSync(int file) {
    int result = Real().fdatasync(file);
    if (result == 0) g_recorder->Synced(file);
    return result;
}

int FSync(int file) {
    int result = Real().fsync(file);
    if (result == 0) g_recorder->Synced(file);
    return result;
}

int LinkAt(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) {
    int node = g_recorder->NodeAt(fromDirectory, from, 0);
    int result = Real().linkat(fromDirectory, from, toDirectory, to, flags);
    if (result == 0) g_recorder->Bound(toDirectory, to, node);
    return result;
}

int RenameAt2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags) {
    int moved = g_recorder->NodeAt(fromDirectory, from, AT_SYMLINK_NOFOLLOW);
    int back = (flags & RENAME_EXCHANGE) ? g_recorder->NodeAt(toDirectory, to, AT_SYMLINK_NOFOLLOW) : kNoNode;
    int result = Real().renameat2(fromDirectory, from, toDirectory, to, flags);
    if (result != 0) return result;
    g_recorder->Bound(toDirectory, to, moved);
    g_recorder->Bound(fromDirectory, from, back);
    return result;
}

int UnlinkAt(int directory, const char* path, int flags) {
    int result = Real().unlinkat(directory, path, flags);
    if (result == 0) g_recorder->Bound(directory, path, kNoNode);
    return result;
}

int MkDirAt(int directory, const char* path, mode_t mode) {
    int result = Real().mkdirat(directory, path, mode);
    if (result == 0) g_recorder->Made(directory, path);
    return result;
}

}  // namespace

Recorder::Recorder(const fs::path& folder) : m_real(g_systemCalls) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) throw std::runtime_error("no folder: " + folder.string());
    m_nodes[{status.st_dev, status.st_ino}] = 0;
    AddExisting(folder, 0);
    m_before.Settle();
    m_events.clear();

    g_recorder = this;
    g_systemCalls.openat2 = OpenAt2;
    g_systemCalls.openat = OpenAt;
    g_systemCalls.write = Write;
    g_systemCalls.fdatasync = FDataSync;
    g_systemCalls.fsync = FSync;
    g_systemCalls.linkat = LinkAt;
    g_systemCalls.renameat2 = RenameAt2;
    g_systemCalls.unlinkat = UnlinkAt;
    g_systemCalls.mkdirat = MkDirAt;
}

Recorder::~Recorder() {
    g_systemCalls = m_real;
    g_recorder = nullptr;
}

std::vector<Event> Recorder::Events() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
}

void Recorder::AddExisting(const fs::path& path, int node) {
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        struct stat status {};
        if (::lstat(entry.path().c_str(), &status) != 0) throw std::runtime_error("gone: " + entry.path().string());
        bool directory = S_ISDIR(status.st_mode);
        Event::Kind kind = directory ? Event::Kind::makeDirectory : Event::Kind::makeFile;
        int below = NewNode(kind, status);
        m_before.Add({kind});
        m_before.Add({Event::Kind::bind, node, 0, "", {{entry.path().filename().string(), below}}});
        if (directory) {
            AddExisting(entry.path(), below);
        } else {
            m_before.Add({Event::Kind::write, below, 0, test::ReadWholeFile(entry.path())});
        }
    }
}

/// A number that a file system uses again is another file's from then on.
int Recorder::NewNode(Event::Kind kind, const struct stat& status) {
    m_events.push_back({kind});
    return m_nodes[{status.st_dev, status.st_ino}] = m_count++;
}

int Recorder::Find(const struct stat& status) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_nodes.find({status.st_dev, status.st_ino});
    return found == m_nodes.end() ? kNoNode : found->second;
}

int Recorder::NodeOf(int file) const {
    struct stat status {};
    return ::fstat(file, &status) == 0 ? Find(status) : kNoNode;
}

int Recorder::NodeAt(int directory, const char* path, int flags) const {
    struct stat status {};
    return ::fstatat(directory, path, &status, flags) == 0 ? Find(status) : kNoNode;
}

int Recorder::Opened(int directory, const char* path, unsigned int flags, int file) {
    int reason = errno;
    bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
    bool makes = unnamed || (flags & O_CREAT) != 0;
    struct stat status {};
    if (file < 0 || ::fstat(file, &status) != 0) {
        errno = reason;
        return file;
    }
    bool exclusive = unnamed || (flags & O_EXCL) != 0;
    bool fresh = makes && (exclusive || Find(status) == kNoNode);
    if (fresh) {
        std::unique_lock<std::mutex> lock(m_mutex);
        int node = NewNode(Event::Kind::makeFile, status);
        lock.unlock();
        if (!unnamed) Bound(directory, path, node);
    } else if ((flags & O_TRUNC) && Find(status) != kNoNode) {
        int node = Find(status);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back({Event::Kind::truncate, node});
    }
    errno = reason;
    return file;
}

void Recorder::Written(int file, off_t offset, const void* data, ssize_t count) {
    int node = NodeOf(file);
    if (node == kNoNode) return;
    std::string bytes(static_cast<const char*>(data), static_cast<size_t>(count));
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back({Event::Kind::write, node, static_cast<size_t>(offset), std::move(bytes)});
}

void Recorder::Synced(int file) {
    int node = NodeOf(file);
    if (node == kNoNode) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back({Event::Kind::sync, node});
}

void Recorder::Bound(int directory, const char* path, int node) {
    std::string parent = ParentOf(path);
    if (parent.empty()) parent = path[0] == '/' ? "/" : ".";
    int above = NodeAt(directory, parent.c_str(), 0);
    if (above == kNoNode) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back({Event::Kind::bind, above, 0, "", {{LeafOf(path), node}}});
}

void Recorder::Made(int directory, const char* path) {
    struct stat status {};
    if (::fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
    std::unique_lock<std::mutex> lock(m_mutex);
    int node = NewNode(Event::Kind::makeDirectory, status);
    lock.unlock();
    Bound(directory, path, node);
}

}  // namespace kx::proof
