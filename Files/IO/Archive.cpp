// A zip archive: its directory, and where its entries are.
#include "Files/IO/Archive.h"

#include "Files/IO/Archive_Format.h"

#include <vector>

namespace kx {
namespace {

using layout::Get;
using layout::Local;

constexpr char kContradiction[] = "contradicts the directory";
constexpr char kOutside[] = "lies outside the archive's data";

/// A size of an entry's own header; where it does not fit there, what the next bytes of its extra field say.
uint64_t SizeIn(const char* header, size_t field, std::string_view* extra) {
    uint64_t size = Get<uint32_t>(header, field);
    bool elsewhere = size == layout::kElsewhere && extra->size() >= sizeof size;
    if (!elsewhere) return size;
    size = Get<uint64_t>(extra->data(), 0);
    extra->remove_prefix(sizeof size);
    return size;
}

/// Whether what an entry says of itself is what the directory says. Writers that learn sizes and checksum at the end
/// leave them out before the bytes.
/// @param header  with the name.
bool Agrees(std::string_view header, std::string_view extras, const ArchiveEntry& entry) {
    const char* record = header.data();
    auto flags = Get<uint16_t>(record, Local::kFlags);
    bool sameFile = Get<uint32_t>(record, 0) == Local::kSignature &&
                    Get<uint16_t>(record, Local::kNameLength) == entry.rawName.size() &&
                    header.substr(Local::kSize) == entry.rawName;
    bool sameCoding = Get<uint16_t>(record, Local::kMethod) == entry.method &&
                      (flags & layout::kEncrypted) == (entry.flags & layout::kEncrypted);
    bool follow = flags & layout::kSizesFollow;
    auto same = [&](uint64_t said, uint64_t known) {
        return said == known || (follow && (said == 0 || said == layout::kElsewhere));
    };
    std::string_view extra64;
    layout::ForEachExtra(extras, [&](uint16_t id, std::string_view data) {
        if (id == layout::kExtra64) extra64 = data;
    });
    uint64_t size = SizeIn(record, Local::kUnpackedSize, &extra64);
    uint64_t packedSize = SizeIn(record, Local::kPackedSize, &extra64);
    return sameFile && sameCoding && same(size, entry.size) && same(packedSize, entry.packedSize) &&
           same(Get<uint32_t>(record, Local::kCrc), entry.crc);
}

std::nullopt_t Fail(std::string* fault, std::string text) {
    *fault = std::move(text);
    return std::nullopt;
}

}  // namespace

std::unique_ptr<Archive> Archive::Open(ArchiveBytes bytes, std::string* fault) {
    std::unique_ptr<Archive> archive(new Archive(std::move(bytes)));
    return archive->m_directory.Read(archive->m_bytes, fault) ? std::move(archive) : nullptr;
}

std::optional<Archive::Range> Archive::Locate(const ArchiveEntry& entry, std::string* fault) const {
    uint64_t limit = m_directory.Offset();
    std::vector<char> header(Local::kSize + entry.rawName.size());
    bool before = entry.offset <= limit && header.size() <= limit - entry.offset;
    if (!before) return Fail(fault, kOutside);

    int reason = m_bytes.Read(entry.offset, header.data(), header.size());
    std::vector<char> extras(reason ? 0 : Get<uint16_t>(header.data(), Local::kExtraLength));
    uint64_t data = entry.offset + header.size() + extras.size();
    if (reason == 0) reason = m_bytes.Read(data - extras.size(), extras.data(), extras.size());
    if (reason && reason != ENODATA) return Fail(fault, FaultOfReading(reason));
    bool agrees = reason == 0 && Agrees({header.data(), header.size()}, {extras.data(), extras.size()}, entry);
    if (!agrees) return Fail(fault, kContradiction);

    bool inside = data <= limit && entry.packedSize <= limit - data;
    if (!inside) return Fail(fault, kOutside);
    return Range{entry.offset, data, data + entry.packedSize};
}

}  // namespace kx
