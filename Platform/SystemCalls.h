#pragma once

#include <cerrno>
#include <cstddef>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

struct open_how;

static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8 && sizeof(stat::st_mtime) == 8 && sizeof(stat::st_ino) == 8,
              "32-bit targets need _FILE_OFFSET_BITS=64 and _TIME_BITS=64: files pass 2 GB, and dates the year 2038");

namespace kx {

/// Every file system call that the host makes, in one table.
///
/// Entries take and return what the system's functions of the same names do: -1 (or null) and errno on failure. The
/// host calls the file system through g_systemCalls only, so that a test can stand in any entry's place and make the
/// Nth call fail, fall short or be interrupted.
/// @thread any; entries are replaced only while nothing else runs.
struct SystemCalls {
    int (*openat2)(int directory, const char* path, const open_how* how);
    int (*openat)(int directory, const char* path, int flags, mode_t mode);
    ssize_t (*read)(int file, void* data, size_t size);
    ssize_t (*pread)(int file, void* data, size_t size, off_t offset);
    ssize_t (*write)(int file, const void* data, size_t size);
    int (*fstat)(int file, struct stat* status);
    int (*fstatat)(int directory, const char* path, struct stat* status, int flags);
    int (*faccessat)(int directory, const char* path, int mode, int flags);
    int (*fchmod)(int file, mode_t mode);
    int (*futimens)(int file, const timespec times[2]);
    int (*flock)(int file, int operation);
    int (*fdatasync)(int file);
    int (*fsync)(int file);
    int (*linkat)(int fromDirectory, const char* from, int toDirectory, const char* to, int flags);
    int (*renameat2)(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags);
    int (*unlinkat)(int directory, const char* path, int flags);
    int (*mkdirat)(int directory, const char* path, mode_t mode);
    DIR* (*fdopendir)(int directory);
    dirent* (*readdir)(DIR* list);
    int (*closedir)(DIR* list);
    int (*close)(int file);
};

extern SystemCalls g_systemCalls;

/// Takes a call up again as long as a signal interrupts it.
template <class Call>
auto RetryInterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Brings a file or a directory to the disk.
/// @param call  the table's fsync or fdatasync.
/// @return 0 or an errno value.
[[nodiscard]] inline int Sync(int (*call)(int), int file) {
    return RetryInterrupted([&] { return call(file); }) == 0 ? 0 : errno;
}

/// Owns a file descriptor. Closing keeps errno, so that a failure's reason survives the way out.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int file) : m_file(file) {}
    Descriptor(Descriptor&& other) noexcept : m_file(std::exchange(other.m_file, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_file, other.m_file);
        return *this;
    }
    ~Descriptor();

    explicit operator bool() const { return m_file >= 0; }
    [[nodiscard]] int Get() const { return m_file; }
    int Release() { return std::exchange(m_file, -1); }

private:
    int m_file = -1;
};

}  // namespace kx
