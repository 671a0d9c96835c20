#pragma once

#include "Files/IO/LoadSave_Area.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace kx {

/// The bytes of an archive: a file of the system, or one that is in memory because it lies in an archive itself.
/// @thread any
class ArchiveBytes {
public:
    ArchiveBytes(Descriptor file, const struct stat& status)
        : m_file(std::move(file)), m_size(static_cast<uint64_t>(status.st_size)), m_device(status.st_dev),
          m_inode(status.st_ino) {}
    explicit ArchiveBytes(Contents contents)
        : m_contents(std::move(contents)), m_size(static_cast<uint64_t>(m_contents->m_size)) {}

    [[nodiscard]] uint64_t Size() const { return m_size; }

    /// Reads bytes, all or none.
    /// @return 0 or an errno value: ENODATA where there are not so many.
    [[nodiscard]] int Read(uint64_t offset, void* data, size_t size) const;

    /// Whether a file of the system is the one that the bytes are read from, whatever its name.
    [[nodiscard]] bool AreOf(const struct stat& file) const {
        return m_file && file.st_dev == m_device && file.st_ino == m_inode;
    }

private:
    Descriptor m_file;
    Contents m_contents;
    uint64_t m_size;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

/// @return why bytes cannot be read, as the end of a sentence.
std::string FaultOfReading(int reason);

}  // namespace kx
