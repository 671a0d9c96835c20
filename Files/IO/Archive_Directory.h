#pragma once

#include "Files/IO/Archive_Bytes.h"

#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

/// What an archive's directory says about one entry. None of it is to be believed.
struct ArchiveEntry {
    std::string_view rawName;  ///< its bytes
    std::string_view name;     ///< in UTF-8, unless it says that it is and is not; separators as they stand
    uint64_t size;             ///< unpacked, bytes
    uint64_t packedSize;
    uint64_t offset;  ///< of its own header
    uint32_t crc;
    uint32_t attributes;
    uint16_t method;
    uint16_t flags;
    uint16_t dosTime, dosDate;
    std::optional<int32_t> unixTime;  ///< seconds since 1970
};

enum class ArchiveEntryKind { file, directory, link, device };

ArchiveEntryKind KindOf(const ArchiveEntry& entry);

/// @return when an entry was modified, seconds since 1970; a time without a zone is the system's.
time_t ModifiedAt(const ArchiveEntry& entry);

/// The directory of a zip archive.
/// @thread any, once it is read
class ArchiveDirectory {
public:
    /// @param fault  set to what is wrong with the archive, as the end of a sentence.
    /// @return false then.
    /// @throws std::bad_alloc
    [[nodiscard]] bool Read(const ArchiveBytes& archive, std::string* fault);

    /// In their order in the directory.
    [[nodiscard]] const std::vector<ArchiveEntry>& Entries() const { return m_entries; }

    /// Where the directory begins: the entries lie before it.
    [[nodiscard]] uint64_t Offset() const { return m_offset; }

private:
    [[nodiscard]] bool ReadEntry(std::string_view* rest, std::string* fault);
    void ReadExtras(std::string_view extras, ArchiveEntry* entry);

    std::vector<char> m_bytes;
    std::deque<std::string> m_names;  // those that are not as they stand
    std::vector<ArchiveEntry> m_entries;
    uint64_t m_offset = 0;
};

}  // namespace kx
