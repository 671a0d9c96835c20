// The table of file system calls, filled with the system's own.
#include "Platform/SystemCalls.h"

#include <cstdio>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx {
namespace {

int OpenAt2(int directory, const char* path, const open_how* how) {
    return static_cast<int>(::syscall(SYS_openat2, directory, path, how, sizeof *how));
}

int OpenAt(int directory, const char* path, int flags, mode_t mode) {
    return ::openat(directory, path, flags, mode);
}

}  // namespace

SystemCalls g_systemCalls = {
    OpenAt2,     OpenAt,     ::read,     ::pread,     ::write,     ::fstat,    ::fstatat,
    ::faccessat, ::fchmod,   ::futimens, ::flock,     ::fdatasync, ::fsync,    ::linkat,
    ::renameat2, ::unlinkat, ::mkdirat,  ::fdopendir, ::readdir,   ::closedir, ::close,
};

Descriptor::~Descriptor() {
    if (m_file < 0) return;
    int reason = errno;
    g_systemCalls.close(m_file);
    errno = reason;
}

}  // namespace kx
