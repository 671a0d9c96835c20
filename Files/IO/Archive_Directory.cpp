// Reading an archive's directory, from its end.
#include "Files/IO/Archive_Directory.h"

#include "Files/Base/Limits.h"
#include "Files/IO/Archive_Format.h"
#include "Files/IO/Archive_Name.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>

namespace kx {
namespace {

using layout::Central;
using layout::End;
using layout::End64;
using layout::End64Locator;
using layout::Get;

constexpr char kNoArchive[] = "is no zip archive";
constexpr char kDamaged[] = "has a damaged directory";
constexpr char kSeveralDisks[] = "spans several disks";

/// Where the directory is.
struct Extent {
    uint64_t entries;
    uint64_t size;
    uint64_t offset;
    uint64_t limit;  // where it has to end by
};

bool Fail(std::string* fault, std::string text) {
    *fault = std::move(text);
    return false;
}

bool FailRead(std::string* fault, int reason) {
    return Fail(fault, reason == ENODATA ? kNoArchive : FaultOfReading(reason));
}

/// Or a number that is elsewhere.
bool IsFirstDisk(uint16_t disk) {
    return disk == 0 || disk == layout::kElsewhere16;
}

std::string TooMany() {
    return "holds more than " + std::to_string(kMaxArchiveEntries) + " entries";
}

/// @return where the record of the end begins in the archive's last bytes: the last one whose comment reaches exactly
///         to the end; npos where none does.
size_t FindEnd(const std::vector<char>& tail) {
    for (size_t at = tail.size() - End::kSize + 1; at-- > 0;) {
        if (Get<uint32_t>(&tail[at], 0) != End::kSignature) continue;
        size_t comment = Get<uint16_t>(&tail[at], End::kCommentLength);
        if (at + End::kSize + comment == tail.size()) return at;
    }
    return std::string::npos;
}

/// Fills in what did not fit the record of the end, where the larger one is there.
/// @param at  where the record of the end is in the archive.
bool ReadEnd64(const ArchiveBytes& archive, uint64_t at, Extent* extent, std::string* fault) {
    char locator[End64Locator::kSize];
    bool possible = at >= sizeof locator && archive.Read(at - sizeof locator, locator, sizeof locator) == 0;
    if (!possible || Get<uint32_t>(locator, 0) != End64Locator::kSignature) return true;

    auto offset = Get<uint64_t>(locator, End64Locator::kOffset);
    char end[End64::kSize];
    bool inside = offset < at && archive.Read(offset, end, sizeof end) == 0;
    if (!inside || Get<uint32_t>(end, 0) != End64::kSignature) return Fail(fault, kDamaged);
    bool oneDisk = Get<uint32_t>(end, End64::kDisk) == 0 && Get<uint32_t>(end, End64::kDirectoryDisk) == 0 &&
                   Get<uint64_t>(end, End64::kEntriesHere) == Get<uint64_t>(end, End64::kEntries);
    if (!oneDisk) return Fail(fault, kSeveralDisks);
    if (extent->entries == layout::kElsewhere16) extent->entries = Get<uint64_t>(end, End64::kEntries);
    if (extent->size == layout::kElsewhere) extent->size = Get<uint64_t>(end, End64::kDirectorySize);
    if (extent->offset == layout::kElsewhere) extent->offset = Get<uint64_t>(end, End64::kDirectoryOffset);
    extent->limit = offset;
    return true;
}

bool FindExtent(const ArchiveBytes& archive, Extent* extent, std::string* fault) {
    auto length = static_cast<size_t>(std::min<uint64_t>(archive.Size(), End::kSize + End::kMaxComment));
    if (length < End::kSize) return Fail(fault, kNoArchive);
    std::vector<char> tail(length);
    if (int reason = archive.Read(archive.Size() - length, tail.data(), length)) return FailRead(fault, reason);
    size_t found = FindEnd(tail);
    if (found == std::string::npos) return Fail(fault, kNoArchive);

    const char* end = &tail[found];
    bool oneDisk = IsFirstDisk(Get<uint16_t>(end, End::kDisk)) &&
                   IsFirstDisk(Get<uint16_t>(end, End::kDirectoryDisk)) &&
                   Get<uint16_t>(end, End::kEntriesHere) == Get<uint16_t>(end, End::kEntries);
    if (!oneDisk) return Fail(fault, kSeveralDisks);
    uint64_t at = archive.Size() - length + found;
    *extent = {Get<uint16_t>(end, End::kEntries), Get<uint32_t>(end, End::kDirectorySize),
               Get<uint32_t>(end, End::kDirectoryOffset), at};
    if (!ReadEnd64(archive, at, extent, fault)) return false;

    bool inside = extent->offset <= extent->limit && extent->size <= extent->limit - extent->offset;
    if (!inside) return Fail(fault, kNoArchive);
    if (extent->entries > static_cast<uint64_t>(kMaxArchiveEntries)) {
        return Fail(fault, TooMany());
    }
    if (extent->size > static_cast<uint64_t>(kMaxArchiveDirectory)) {
        return Fail(fault, "has a directory of more than " + std::to_string(kMaxArchiveDirectory) + " bytes");
    }
    return true;
}

/// Takes as many bytes off the front of what is left.
/// @return false where there are not so many.
bool Take(std::string_view* rest, size_t size, std::string_view* taken) {
    if (rest->size() < size) return false;
    *taken = rest->substr(0, size);
    rest->remove_prefix(size);
    return true;
}

/// Takes a number that is in the extra field because its own field says so.
void TakeElsewhere(std::string_view* extra, uint64_t* number) {
    std::string_view taken;
    if (*number == layout::kElsewhere && Take(extra, sizeof *number, &taken)) *number = Get<uint64_t>(taken.data(), 0);
}

constexpr mode_t kDosDirectory = 0x10;

}  // namespace

ArchiveEntryKind KindOf(const ArchiveEntry& entry) {
    auto mode = static_cast<mode_t>(entry.attributes >> 16);
    if (S_ISLNK(mode)) return ArchiveEntryKind::link;
    bool known = (mode & S_IFMT) == 0 || S_ISREG(mode) || S_ISDIR(mode);
    if (!known) return ArchiveEntryKind::device;
    bool named = !entry.name.empty() && (entry.name.back() == '/' || entry.name.back() == '\\');
    bool marked = S_ISDIR(mode) || (!S_ISREG(mode) && (entry.attributes & kDosDirectory));
    return named || marked ? ArchiveEntryKind::directory : ArchiveEntryKind::file;
}

time_t ModifiedAt(const ArchiveEntry& entry) {
    if (entry.unixTime) return *entry.unixTime;
    struct tm local {};
    local.tm_year = (entry.dosDate >> 9) + 80;
    local.tm_mon = (entry.dosDate >> 5 & 15) - 1;
    local.tm_mday = entry.dosDate & 31;
    local.tm_hour = entry.dosTime >> 11;
    local.tm_min = entry.dosTime >> 5 & 63;
    local.tm_sec = (entry.dosTime & 31) * 2;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

bool ArchiveDirectory::Read(const ArchiveBytes& archive, std::string* fault) {
    Extent extent{};
    if (!FindExtent(archive, &extent, fault)) return false;
    m_offset = extent.offset;
    m_bytes.resize(static_cast<size_t>(extent.size));
    if (int reason = archive.Read(extent.offset, m_bytes.data(), m_bytes.size())) return FailRead(fault, reason);
    m_entries.reserve(static_cast<size_t>(std::min<uint64_t>(extent.entries, extent.size / Central::kSize)));
    bool begins = m_bytes.empty() ||
                  (m_bytes.size() >= Central::kSize && Get<uint32_t>(m_bytes.data(), 0) == Central::kSignature);
    if (!begins) return Fail(fault, kNoArchive);
    std::string_view rest(m_bytes.data(), m_bytes.size());
    while (!rest.empty()) {
        bool room = m_entries.size() < static_cast<size_t>(kMaxArchiveEntries);
        if (!room) return Fail(fault, TooMany());
        if (!ReadEntry(&rest, fault)) return false;
    }
    return m_entries.size() == extent.entries || Fail(fault, kDamaged);
}

bool ArchiveDirectory::ReadEntry(std::string_view* rest, std::string* fault) {
    std::string_view fixed;
    std::string_view extras;
    std::string_view comment;
    if (!Take(rest, Central::kSize, &fixed)) return Fail(fault, kDamaged);
    const char* record = fixed.data();
    if (Get<uint32_t>(record, 0) != Central::kSignature) return Fail(fault, kDamaged);
    ArchiveEntry entry{};
    bool complete = Take(rest, Get<uint16_t>(record, Central::kNameLength), &entry.rawName) &&
                    Take(rest, Get<uint16_t>(record, Central::kExtraLength), &extras) &&
                    Take(rest, Get<uint16_t>(record, Central::kCommentLength), &comment);
    if (!complete) return Fail(fault, kDamaged);
    if (!IsFirstDisk(Get<uint16_t>(record, Central::kDisk))) return Fail(fault, kSeveralDisks);

    entry.size = Get<uint32_t>(record, Central::kUnpackedSize);
    entry.packedSize = Get<uint32_t>(record, Central::kPackedSize);
    entry.offset = Get<uint32_t>(record, Central::kOffset);
    entry.crc = Get<uint32_t>(record, Central::kCrc);
    entry.attributes = Get<uint32_t>(record, Central::kAttributes);
    entry.method = Get<uint16_t>(record, Central::kMethod);
    entry.flags = Get<uint16_t>(record, Central::kFlags);
    entry.dosTime = Get<uint16_t>(record, Central::kTime);
    entry.dosDate = Get<uint16_t>(record, Central::kDate);
    ReadExtras(extras, &entry);
    m_entries.push_back(entry);
    return true;
}

void ArchiveDirectory::ReadExtras(std::string_view extras, ArchiveEntry* entry) {
    std::string_view unicodeName;
    layout::ForEachExtra(extras, [&](uint16_t id, std::string_view data) {
        if (id == layout::kExtra64) {
            TakeElsewhere(&data, &entry->size);
            TakeElsewhere(&data, &entry->packedSize);
            TakeElsewhere(&data, &entry->offset);
        }
        bool modified = id == layout::kExtraTime && data.size() >= 5 && (data[0] & 1);
        if (modified) entry->unixTime = static_cast<int32_t>(Get<uint32_t>(data.data(), 1));
        if (id == layout::kExtraUnicodeName) unicodeName = data;
    });
    bool isUtf8 = entry->flags & layout::kUtf8Name;
    std::optional<std::string> decoded = isUtf8 ? std::nullopt : DecodeArchiveName(entry->rawName, unicodeName);
    if (decoded) m_names.push_back(std::move(*decoded));
    entry->name = decoded ? std::string_view(m_names.back()) : entry->rawName;
}

}  // namespace kx
