// Opening, reading and renaming beneath a root.
#include "Platform/Platform_File.h"

#include "Files/Base/Limits.h"

#include <fcntl.h>
#include <linux/openat2.h>

namespace kx {

const char kTemporaryPrefix[] = ".kxtmp-";

namespace {

/// What the C library adds to every open of its own where off_t once had 32 bits; openat2 it leaves to its callers.
constexpr unsigned int kLargeFile = O_LARGEFILE;

bool IsLink(int directory, const std::string& leaf) {
    int reason = errno;
    struct stat status {};
    bool link =
        g_systemCalls.fstatat(directory, leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
    errno = reason;
    return link;
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
        if (!next) {
            if (errno == ENOTDIR && IsLink(directory, component)) errno = ELOOP;
            return next;
        }
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

/// @param read  reads from a number of bytes on; gives what the system's read gives.
/// @return bytes read until the end or `size`; -1 and errno on failure.
template <class Read>
ssize_t ReadRepeatedly(size_t size, Read read) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = RetryInterrupted([&] { return read(done); });
        if (count < 0) return -1;
        if (count == 0) break;
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

Descriptor OpenBeneath(int root, const std::string& name, int flags, mode_t mode) {
    open_how how{};
    how.flags = static_cast<unsigned int>(flags | O_CLOEXEC);
    if (!(flags & O_PATH)) how.flags |= kLargeFile;
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
    return ReadRepeatedly(size, [&](size_t done) { return g_systemCalls.read(file, data + done, size - done); });
}

ssize_t ReadAllAt(int file, char* data, size_t size, off_t offset) {
    return ReadRepeatedly(size, [&](size_t done) {
        return g_systemCalls.pread(file, data + done, size - done, offset + static_cast<off_t>(done));
    });
}

int RenameBeneath(int root, const std::string& from, const std::string& to) {
    Descriptor source = OpenBeneath(root, ParentOf(from), O_RDONLY | O_DIRECTORY);
    if (!source) return errno;
    Descriptor target = OpenBeneath(root, ParentOf(to), O_RDONLY | O_DIRECTORY);
    if (!target) return errno;
    std::string oldLeaf = LeafOf(from);
    std::string newLeaf = LeafOf(to);
    return g_systemCalls.renameat2(source.Get(), oldLeaf.c_str(), target.Get(), newLeaf.c_str(), 0) == 0 ? 0 : errno;
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
