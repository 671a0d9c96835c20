// Disks that lie in memory, and the file systems on them.
#include "proof/Crash_Disk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::proof {
namespace {

constexpr int kTries = 100;
constexpr size_t kChunkBytes = 64 * 1024;

/// Without the habit of syncing what is renamed over another file: what is promised does not rest on it.
constexpr char kMountOptions[] = "data=ordered,noauto_da_alloc";

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

struct LoopDevice {
    std::string path;
    Descriptor device;  // keeps it until it is mounted
};

/// Another process may take a device that is free between the question and the answer's use.
LoopDevice Attach(const DiskImage& image) {
    Descriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control) Fail("/dev/loop-control");
    for (int i = 0; i < kTries; ++i) {
        int number = ::ioctl(control.Get(), LOOP_CTL_GET_FREE);
        if (number < 0) Fail("no free loop device");
        LoopDevice loop{"/dev/loop" + std::to_string(number), {}};
        loop.device = Descriptor(::open(loop.path.c_str(), O_RDWR | O_CLOEXEC));
        if (!loop.device) Fail(loop.path);
        loop_config config{};
        config.fd = static_cast<unsigned int>(image.File());
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (::ioctl(loop.device.Get(), LOOP_CONFIGURE, &config) == 0) return loop;
        if (errno != EBUSY) Fail(loop.path);
    }
    Fail("no free loop device");
}

void Format(const std::string& device) {
    std::string path = device;
    char program[] = "mkfs.ext4", quiet[] = "-q", force[] = "-F";
    char* arguments[] = {program, quiet, force, path.data(), nullptr};
    char search[] = "PATH=/usr/sbin:/sbin:/usr/bin:/bin";
    char* environment[] = {search, nullptr};
    pid_t child = 0;
    int status = 1;
    errno = ::posix_spawn(&child, "/usr/sbin/mkfs.ext4", nullptr, nullptr, arguments, environment);
    if (errno) Fail("mkfs.ext4");
    if (::waitpid(child, &status, 0) != child || status != 0) throw std::runtime_error("mkfs.ext4 fails");
}

}  // namespace

DiskImage::DiskImage(size_t bytes) : m_size(bytes), m_file(::memfd_create("disk", MFD_CLOEXEC)) {
    if (!m_file || ::ftruncate(m_file.Get(), static_cast<off_t>(bytes)) != 0) Fail("no memory for a disk");
    void* memory = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.Get(), 0);
    if (memory == MAP_FAILED) Fail("no memory for a disk");
    m_memory = static_cast<char*>(memory);
}

DiskImage::DiskImage(const std::string& bytes) : DiskImage(bytes.size()) {
    static const std::string zeros(kChunkBytes, 0);
    for (size_t at = 0; at < bytes.size(); at += kChunkBytes) {
        size_t length = std::min(kChunkBytes, bytes.size() - at);
        if (bytes.compare(at, length, zeros, 0, length) == 0) continue;  // it holds them already
        std::memcpy(m_memory + at, bytes.data() + at, length);
    }
}

DiskImage::~DiskImage() {
    ::munmap(m_memory, m_size);
}

bool DiskImage::Holds(const std::string& bytes) const {
    return bytes.size() == m_size && std::memcmp(bytes.data(), m_memory, m_size) == 0;
}

std::string DiskImage::Bytes() const {
    std::string bytes(m_memory, m_size);
    for (int i = 0; i < kTries; ++i) {
        if (Holds(bytes)) return bytes;
        bytes.assign(m_memory, m_size);
    }
    throw std::runtime_error("the disk does not come to rest");
}

int KeepMountsPrivate() {
    if (::unshare(CLONE_NEWNS) != 0) return errno;
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ? 0 : errno;
}

MountedDisk::MountedDisk(const DiskImage& image, bool format) {
    LoopDevice loop = Attach(image);
    if (format) Format(loop.path);
    if (::mount(loop.path.c_str(), Folder().c_str(), "ext4", 0, kMountOptions) != 0) Fail("cannot mount");
}

MountedDisk::~MountedDisk() {
    bool unmounted = ::umount2(Folder().c_str(), 0) == 0;
    if (!unmounted) ::umount2(Folder().c_str(), MNT_DETACH);  // somebody still looks at it
}

void MountedDisk::Sync() const {
    Descriptor folder(::open(Folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::syncfs(folder.Get()) != 0) Fail("syncfs");
}

void MountedDisk::CommitRecords() const {
    Descriptor other(::open((Folder() / "other").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    bool done = other && ::write(other.Get(), "x", 1) == 1 && ::fsync(other.Get()) == 0;
    if (!done) Fail("cannot sync another file");
}

}  // namespace kx::proof
