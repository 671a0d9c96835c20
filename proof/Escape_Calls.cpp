// The system calls, watched.
#include "proof/Escape_Calls.h"

#include <fcntl.h>
#include <linux/openat2.h>

namespace kx::proof {
namespace {

SystemCalls g_real;
std::atomic<bool> g_changed{false};
bool g_hasOpenat2 = true;

int OpenAt2(int directory, const char* path, const open_how* how) {
    if (!g_hasOpenat2) {
        errno = ENOSYS;
        return -1;
    }
    if (how->flags & O_CREAT) g_changed = true;
    return g_real.openat2(directory, path, how);
}

int OpenAt(int directory, const char* path, int flags, mode_t mode) {
    if (flags & O_CREAT) g_changed = true;
    return g_real.openat(directory, path, flags, mode);
}

int LinkAt(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) {
    g_changed = true;
    return g_real.linkat(fromDirectory, from, toDirectory, to, flags);
}

int RenameAt2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags) {
    g_changed = true;
    return g_real.renameat2(fromDirectory, from, toDirectory, to, flags);
}

int UnlinkAt(int directory, const char* path, int flags) {
    g_changed = true;
    return g_real.unlinkat(directory, path, flags);
}

int MkdirAt(int directory, const char* path, mode_t mode) {
    g_changed = true;
    return g_real.mkdirat(directory, path, mode);
}

}  // namespace

WatchedCalls::WatchedCalls(Opening opening) : m_before(g_systemCalls) {
    g_real = m_before;
    g_hasOpenat2 = opening == Opening::withOpenat2;
    g_systemCalls.openat2 = OpenAt2;
    g_systemCalls.openat = OpenAt;
    g_systemCalls.linkat = LinkAt;
    g_systemCalls.renameat2 = RenameAt2;
    g_systemCalls.unlinkat = UnlinkAt;
    g_systemCalls.mkdirat = MkdirAt;
}

WatchedCalls::~WatchedCalls() {
    g_systemCalls = m_before;
}

bool WatchedCalls::TakeChanged() {
    return g_changed.exchange(false);
}

}  // namespace kx::proof
