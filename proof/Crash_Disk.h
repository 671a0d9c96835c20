#pragma once

#include "Platform/SystemCalls.h"
#include "tests/support/Folder.h"

#include <filesystem>
#include <string>

namespace kx::proof {

/// What a disk holds: an image in memory, which a loop device makes a block device.
class DiskImage {
public:
    explicit DiskImage(size_t bytes);  ///< of zeros
    explicit DiskImage(const std::string& bytes);
    DiskImage(const DiskImage&) = delete;
    DiskImage& operator=(const DiskImage&) = delete;
    ~DiskImage();

    [[nodiscard]] int File() const { return m_file.Get(); }

    /// @return its bytes, all of one instant: none was written while they were read.
    [[nodiscard]] std::string Bytes() const;
    [[nodiscard]] bool Holds(const std::string& bytes) const;

private:
    size_t m_size;
    Descriptor m_file;
    char* m_memory;  // what the file holds
};

/// Keeps the mounts of this process, and of those that it starts, to themselves: they go with the last of them, however
/// it ends, and with them their loop devices.
/// @return 0, or an errno value where this process may not do that.
int KeepMountsPrivate();

/// An image as a mounted ext4, until the end of its life.
class MountedDisk {
public:
    /// @param format  make a new file system first.
    /// @throws std::runtime_error
    MountedDisk(const DiskImage& image, bool format);
    MountedDisk(const MountedDisk&) = delete;
    MountedDisk& operator=(const MountedDisk&) = delete;
    ~MountedDisk();

    [[nodiscard]] const std::filesystem::path& Folder() const { return m_folder.Path(); }

    /// Brings everything to the disk.
    void Sync() const;

    /// Brings the file system's own records to the disk, as any other program's sync does at any time, and no other
    /// file's contents.
    void CommitRecords() const;

private:
    test::TemporaryFolder m_folder;
};

}  // namespace kx::proof
