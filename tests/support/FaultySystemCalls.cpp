// System calls that fail on demand.
#include "tests/support/FaultySystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <linux/openat2.h>
#include <set>

namespace kx::test {
namespace {

FaultySystemCalls* g_active = nullptr;

/// The value that says "failed": null or -1.
template <class Result>
Result Failed(int reason) {
    errno = reason;
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return static_cast<Result>(-1);
    }
}

/// Passes a call on, or makes it fail.
template <class Call>
auto Pass(const char* name, unsigned int flags, Call call) -> decltype(call()) {
    if (int reason = g_active->Fault(name, flags)) return Failed<decltype(call())>(reason);
    return call();
}

const SystemCalls& Real() {
    return g_active->Real();
}

int OpenAt2(int directory, const char* path, const open_how* how) {
    return Pass("openat2", static_cast<unsigned int>(how->flags), [&] { return Real().openat2(directory, path, how); });
}

int OpenAt(int directory, const char* path, int flags, mode_t mode) {
    return Pass("openat", static_cast<unsigned int>(flags),
                [&] { return Real().openat(directory, path, flags, mode); });
}

ssize_t Read(int file, void* data, size_t size) {
    return Pass("read", 0, [&] { return Real().read(file, data, g_active->Shortened(size)); });
}

ssize_t PRead(int file, void* data, size_t size, off_t offset) {
    return Pass("pread", 0, [&] { return Real().pread(file, data, g_active->Shortened(size), offset); });
}

ssize_t Write(int file, const void* data, size_t size) {
    return Pass("write", 0, [&] { return Real().write(file, data, g_active->Shortened(size)); });
}

int FStat(int file, struct stat* status) {
    return Pass("fstat", 0, [&] { return Real().fstat(file, status); });
}

int FStatAt(int directory, const char* path, struct stat* status, int flags) {
    return Pass("fstatat", 0, [&] { return Real().fstatat(directory, path, status, flags); });
}

int FAccessAt(int directory, const char* path, int mode, int flags) {
    return Pass("faccessat", 0, [&] { return Real().faccessat(directory, path, mode, flags); });
}

int FChMod(int file, mode_t mode) {
    return Pass("fchmod", 0, [&] { return Real().fchmod(file, mode); });
}

int FUTimeNs(int file, const timespec times[2]) {
    return Pass("futimens", 0, [&] { return Real().futimens(file, times); });
}

int FLock(int file, int operation) {
    return Pass("flock", 0, [&] { return Real().flock(file, operation); });
}

int FDataSync(int file) {
    return Pass("fdatasync", 0, [&] { return Real().fdatasync(file); });
}

int FSync(int file) {
    return Pass("fsync", 0, [&] { return Real().fsync(file); });
}

int LinkAt(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) {
    return Pass("linkat", 0, [&] { return Real().linkat(fromDirectory, from, toDirectory, to, flags); });
}

int RenameAt2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags) {
    return Pass("renameat2", flags, [&] { return Real().renameat2(fromDirectory, from, toDirectory, to, flags); });
}

int UnlinkAt(int directory, const char* path, int flags) {
    return Pass("unlinkat", 0, [&] { return Real().unlinkat(directory, path, flags); });
}

int MkDirAt(int directory, const char* path, mode_t mode) {
    return Pass("mkdirat", 0, [&] { return Real().mkdirat(directory, path, mode); });
}

DIR* FdOpenDir(int directory) {
    return Pass("fdopendir", 0, [&] { return Real().fdopendir(directory); });
}

dirent* ReadDir(DIR* list) {
    return Pass("readdir", 0, [&] { return Real().readdir(list); });
}

int CloseDir(DIR* list) {
    int reason = g_active->Fault("closedir", 0);
    int result = Real().closedir(list);
    return reason ? Failed<int>(reason) : result;
}

int Close(int file) {
    int reason = g_active->Fault("close", 0);
    int result = Real().close(file);
    return reason ? Failed<int>(reason) : result;
}

bool CanBeInterrupted(const std::string& name) {
    static const std::set<std::string> names = {"openat2", "openat", "read", "pread", "write", "fdatasync", "fsync"};
    return names.count(name) > 0;
}

/// Calls that need no room, no new descriptor and no new name.
bool NeedsNothing(const std::string& name) {
    static const std::set<std::string> names = {"close", "closedir", "fstat", "unlinkat", "renameat2"};
    return names.count(name) > 0;
}

}  // namespace

FaultySystemCalls::FaultySystemCalls() : m_real(g_systemCalls) {
    g_active = this;
    g_systemCalls = {OpenAt2,   OpenAt,   Read,     PRead,     Write,     FStat,    FStatAt,
                     FAccessAt, FChMod,   FUTimeNs, FLock,     FDataSync, FSync,    LinkAt,
                     RenameAt2, UnlinkAt, MkDirAt,  FdOpenDir, ReadDir,   CloseDir, Close};
}

FaultySystemCalls::~FaultySystemCalls() {
    g_systemCalls = m_real;
    g_active = nullptr;
}

void FaultySystemCalls::FailAt(int number, int reason, Extent extent) {
    m_failing = static_cast<int>(m_calls.size()) + number;
    m_reason = reason;
    m_extent = extent;
}

void FaultySystemCalls::FailFrom(const std::string& name, int number, int reason) {
    m_nameFaults.push_back({name, CountOf(name) + number, reason});
}

void FaultySystemCalls::FailWithFlags(const std::string& name, unsigned int flags, int reason) {
    m_flagFaults.push_back({name, flags, reason});
}

void FaultySystemCalls::ShortenAt(int number, size_t most) {
    m_shortCall = static_cast<int>(m_calls.size()) + number;
    m_shortMost = most;
}

size_t FaultySystemCalls::Shortened(size_t size) const {
    bool isShort = m_shortCall && static_cast<int>(m_calls.size()) == m_shortCall;
    if (isShort) return std::min(size, m_shortMost);
    return m_most ? std::min(size, m_most) : size;
}

int FaultySystemCalls::Fault(const char* name, unsigned int flags) {
    if (m_before) m_before();
    m_calls.emplace_back(name);
    if (m_interrupting && CanBeInterrupted(name)) {
        m_interrupted = !m_interrupted;
        if (m_interrupted) return EINTR;
    }
    if (int reason = CountedFault(name)) return reason;
    if (int reason = NamedFault(name)) return reason;
    return FlaggedFault(name, flags);
}

int FaultySystemCalls::CountedFault(const std::string& name) const {
    auto number = static_cast<int>(m_calls.size());
    if (m_failing == 0 || number < m_failing) return 0;
    if (number == m_failing) return m_reason;
    if (m_extent == Extent::once) return 0;
    return m_extent == Extent::makingCalls && NeedsNothing(name) ? 0 : m_reason;
}

int FaultySystemCalls::NamedFault(const std::string& name) const {
    for (const NameFault& fault : m_nameFaults) {
        if (fault.name == name && CountOf(name) >= fault.number) return fault.reason;
    }
    return 0;
}

int FaultySystemCalls::FlaggedFault(const std::string& name, unsigned int flags) const {
    for (const FlagFault& fault : m_flagFaults) {
        if (fault.name == name && (flags & fault.flags) == fault.flags) return fault.reason;
    }
    return 0;
}

int FaultySystemCalls::CountOf(const std::string& name) const {
    return static_cast<int>(std::count(m_calls.begin(), m_calls.end(), name));
}

}  // namespace kx::test
