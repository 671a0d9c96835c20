#pragma once

#include "Files/IO/Archive_Directory.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

struct zip;
struct zip_error;
struct zip_file;

namespace kx {

struct ZipLibrary;

/// A zip archive that is read.
///
/// Its directory is read once; nothing else is kept of it. What an entry says of itself is compared with what the
/// directory says of it, since either may lie.
/// @thread any
class Archive {
public:
    /// @param fault  set to what is wrong with the archive, as the end of a sentence.
    /// @return null then.
    /// @throws std::bad_alloc
    static std::unique_ptr<Archive> Open(ArchiveBytes bytes, std::string* fault);

    [[nodiscard]] const std::vector<ArchiveEntry>& Entries() const { return m_directory.Entries(); }
    [[nodiscard]] const ArchiveBytes& Bytes() const { return m_bytes; }

    /// Where an entry is in the archive: from its own header to after its packed bytes.
    struct Range {
        uint64_t begin;
        uint64_t data;
        uint64_t end;
    };

    /// @param fault  set to what is wrong with the entry, as the end of a sentence that begins with its name.
    [[nodiscard]] std::optional<Range> Locate(const ArchiveEntry& entry, std::string* fault) const;

private:
    explicit Archive(ArchiveBytes bytes) : m_bytes(std::move(bytes)) {}

    ArchiveBytes m_bytes;
    ArchiveDirectory m_directory;
};

/// @return why an entry's bytes cannot be unpacked by the library, whatever they are, as the end of a sentence; empty
/// where they can.
std::string FaultOfPacking(const ArchiveEntry& entry);

/// The contents of one entry while they are unpacked.
/// @thread one at a time
class ArchiveFile {
public:
    /// @return null, with `fault` set as Archive::Locate sets it, where the entry cannot be unpacked.
    /// @throws std::bad_alloc
    static std::unique_ptr<ArchiveFile> Open(const Archive& archive, const ArchiveEntry& entry, std::string* fault);

    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;
    ~ArchiveFile();

    /// Unpacks the next bytes.
    /// @return how many there are, 0 at the end: all of the file's bytes have come then and their checksum is right;
    ///         -1, with `fault` set, where they are not what the directory says.
    [[nodiscard]] ssize_t Read(char* data, size_t size, std::string* fault);

private:
    class Packed;

    ArchiveFile(const ZipLibrary& library, const ArchiveEntry& entry);
    [[nodiscard]] std::string Begin();
    [[nodiscard]] std::string FaultOf(const zip_error& error) const;
    [[nodiscard]] static std::string FaultOf(int code, int reason);
    [[nodiscard]] std::string FaultOfRead() const;

    const ZipLibrary& m_library;
    uint64_t m_size;
    uint32_t m_crc;
    uint64_t m_done = 0;
    std::unique_ptr<Packed> m_packed;
    zip* m_zip = nullptr;
    zip_file* m_file = nullptr;
};

}  // namespace kx
