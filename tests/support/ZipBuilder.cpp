// Zip archives, byte by byte.
#include "tests/support/ZipBuilder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <zlib.h>

namespace kx::test {
namespace {

constexpr uint32_t kLocalSignature = 0x04034B50;
constexpr uint32_t kCentralSignature = 0x02014B50;
constexpr uint32_t kDescriptorSignature = 0x08074B50;
constexpr uint32_t kEndSignature = 0x06054B50;
constexpr uint32_t kEnd64Signature = 0x06064B50;
constexpr uint32_t kLocatorSignature = 0x07064B50;

constexpr uint64_t kNotHere = 0xFFFFFFFF;  // the value is in a zip64 field
constexpr int kVersion = 45;

/// What is true of an entry.
struct Facts {
    std::string packed;
    uint32_t crc;
    uint64_t size;
};

std::string Packed(const ZipEntry& entry) {
    if (entry.packed) return *entry.packed;
    return entry.method == kDeflated ? RawDeflate(entry.contents) : entry.contents;
}

Facts FactsOf(const ZipEntry& entry) {
    return {Packed(entry), entry.crc ? *entry.crc : Crc32(entry.contents), entry.size.value_or(entry.contents.size())};
}

std::string DirectoryRecord(const ZipEntry& entry, const Facts& facts, uint64_t offset) {
    const ZipHeader& odd = entry.central;
    const std::string& name = odd.name ? *odd.name : entry.name;
    uint64_t packedSize = odd.packedSize.value_or(facts.packed.size());
    uint64_t size = odd.size.value_or(facts.size);
    std::string extra = odd.extra;
    if (entry.zip64) {
        extra += ExtraField(1, LittleEndian(size, 8) + LittleEndian(packedSize, 8) + LittleEndian(offset, 8));
        packedSize = size = offset = kNotHere;
    }
    return LittleEndian(odd.signature.value_or(kCentralSignature), 4) + LittleEndian(kVersion, 1) +
           LittleEndian(entry.system, 1) + LittleEndian(kVersion, 2) +
           LittleEndian(odd.flags.value_or(entry.flags), 2) + LittleEndian(odd.method.value_or(entry.method), 2) +
           LittleEndian(entry.time, 2) + LittleEndian(entry.date, 2) + LittleEndian(odd.crc.value_or(facts.crc), 4) +
           LittleEndian(packedSize, 4) + LittleEndian(size, 4) + LittleEndian(name.size(), 2) +
           LittleEndian(extra.size(), 2) + LittleEndian(entry.comment.size(), 2) + LittleEndian(entry.disk, 2) +
           LittleEndian(0, 2) + LittleEndian(entry.attributes, 4) + LittleEndian(offset, 4) + name + extra +
           entry.comment;
}

std::string Descriptor(const ZipEntry& entry, const Facts& facts) {
    if ((entry.flags & kWithDescriptor) == 0) return "";
    int width = entry.zip64 ? 8 : 4;
    return (entry.descriptorSigned ? LittleEndian(kDescriptorSignature, 4) : "") + LittleEndian(facts.crc, 4) +
           LittleEndian(facts.packed.size(), width) + LittleEndian(facts.size, width);
}

std::string Local(const ZipEntry& entry, const Facts& facts) {
    const ZipHeader& odd = entry.local;
    const std::string& name = odd.name ? *odd.name : entry.name;
    bool later = (entry.flags & kWithDescriptor) != 0;
    uint64_t packedSize = odd.packedSize.value_or(later ? 0 : facts.packed.size());
    uint64_t size = odd.size.value_or(later ? 0 : facts.size);
    std::string extra = odd.extra;
    if (entry.zip64) {
        extra += ExtraField(1, LittleEndian(size, 8) + LittleEndian(packedSize, 8));
        packedSize = size = kNotHere;
    }
    return LittleEndian(odd.signature.value_or(kLocalSignature), 4) + LittleEndian(kVersion, 2) +
           LittleEndian(odd.flags.value_or(entry.flags), 2) + LittleEndian(odd.method.value_or(entry.method), 2) +
           LittleEndian(entry.time, 2) + LittleEndian(entry.date, 2) +
           LittleEndian(odd.crc.value_or(later ? 0 : facts.crc), 4) + LittleEndian(packedSize, 4) +
           LittleEndian(size, 4) + LittleEndian(name.size(), 2) + LittleEndian(extra.size(), 2) + name + extra +
           facts.packed + Descriptor(entry, facts);
}

/// Adds the output of a deflater until it has no more.
void Drain(z_stream& stream, int flush, std::string* out) {
    unsigned char chunk[16384];
    do {
        stream.next_out = chunk;
        stream.avail_out = sizeof chunk;
        ::deflate(&stream, flush);
        out->append(chunk, chunk + (sizeof chunk - stream.avail_out));
    } while (stream.avail_out == 0);
}

constexpr int kLittleMemory = 1;  // most archives are of a few bytes

std::string Deflate(const std::string& data, int flush) {
    z_stream stream{};
    if (::deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, kLittleMemory, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw std::runtime_error("no deflater");
    }
    std::string input = data;  // zlib reads from where it could write
    stream.next_in = reinterpret_cast<unsigned char*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    std::string packed;
    Drain(stream, flush, &packed);
    ::deflateEnd(&stream);
    return packed;
}

}  // namespace

ZipBuilder::ZipBuilder(ZipFrame frame) : m_frame(std::move(frame)), m_bytes(m_frame.prefix) {}

uint64_t ZipBuilder::Offset() const {
    return m_bytes.size() - (m_frame.prefixCounts ? 0 : m_frame.prefix.size());
}

void ZipBuilder::Add(const ZipEntry& entry) {
    Facts facts = FactsOf(entry);
    m_directory += DirectoryRecord(entry, facts, entry.offset.value_or(Offset()));
    if (!entry.onlyInDirectory) m_bytes += Local(entry, facts);
    ++m_entries;
}

std::string ZipBuilder::Finish() const {
    uint64_t offset = Offset() + m_frame.beforeDirectory.size();
    return m_bytes + m_frame.beforeDirectory + m_directory + (m_frame.zip64 ? End64(offset) : "") + End(offset) +
           m_frame.comment + m_frame.after;
}

std::string ZipBuilder::End64(uint64_t offset) const {
    const ZipEnd& odd = m_frame.end64;
    constexpr int kRecord = 44;  // its size without what tells it
    std::string record = LittleEndian(odd.signature.value_or(kEnd64Signature), 4) + LittleEndian(kRecord, 8) +
                         LittleEndian(kVersion, 2) + LittleEndian(kVersion, 2) + LittleEndian(odd.disk.value_or(0), 4) +
                         LittleEndian(odd.directoryDisk.value_or(0), 4) +
                         LittleEndian(odd.entriesHere.value_or(m_entries), 8) +
                         LittleEndian(odd.entries.value_or(m_entries), 8) +
                         LittleEndian(odd.directorySize.value_or(m_directory.size()), 8) +
                         LittleEndian(odd.directoryOffset.value_or(offset), 8);
    return record + LittleEndian(kLocatorSignature, 4) + LittleEndian(m_frame.end64Disk.value_or(0), 4) +
           LittleEndian(m_frame.end64Offset.value_or(offset + m_directory.size()), 8) + LittleEndian(1, 4);
}

std::string ZipBuilder::End(uint64_t offset) const {
    const ZipEnd& odd = m_frame.end;
    auto plain = [&](uint64_t right, uint64_t most) { return m_frame.zip64 ? most : std::min(right, most); };
    return LittleEndian(odd.signature.value_or(kEndSignature), 4) + LittleEndian(odd.disk.value_or(0), 2) +
           LittleEndian(odd.directoryDisk.value_or(0), 2) +
           LittleEndian(odd.entriesHere.value_or(plain(m_entries, 0xFFFF)), 2) +
           LittleEndian(odd.entries.value_or(plain(m_entries, 0xFFFF)), 2) +
           LittleEndian(odd.directorySize.value_or(plain(m_directory.size(), kNotHere)), 4) +
           LittleEndian(odd.directoryOffset.value_or(plain(offset, kNotHere)), 4) +
           LittleEndian(m_frame.commentSize.value_or(static_cast<uint16_t>(m_frame.comment.size())), 2);
}

std::string Build(const std::vector<ZipEntry>& entries, const ZipFrame& frame) {
    ZipBuilder builder(frame);
    for (const ZipEntry& entry : entries) {
        builder.Add(entry);
    }
    return builder.Finish();
}

std::string LocalBytes(const ZipEntry& entry) {
    return Local(entry, FactsOf(entry));
}

ZipEntry Deflated(const std::string& name, const std::string& contents) {
    ZipEntry entry{name, contents};
    entry.method = kDeflated;
    return entry;
}

ZipEntry UnixEntry(const std::string& name, uint32_t mode, const std::string& contents) {
    ZipEntry entry{name, contents};
    entry.system = kUnix;
    entry.attributes = mode << 16;
    return entry;
}

ZipEntry Zeros(const std::string& name, uint64_t mebibytes) {
    std::string zeros(1 << 20, '\0');
    uint32_t crcOfOne = Crc32(zeros);
    std::string one = Deflate(zeros, Z_FULL_FLUSH);  // goes on from nothing before it
    ZipEntry entry = Deflated(name, "");
    entry.packed.emplace();
    uLong crc = 0;
    for (uint64_t i = 0; i < mebibytes; ++i) {
        *entry.packed += one;
        crc = ::crc32_combine(crc, crcOfOne, static_cast<z_off_t>(zeros.size()));
    }
    *entry.packed += RawDeflate("");
    entry.crc = static_cast<uint32_t>(crc);
    entry.size = mebibytes << 20;
    return entry;
}

std::string LittleEndian(uint64_t value, int bytes) {
    std::string low;
    for (int i = 0; i < bytes; ++i) {
        low += static_cast<char>(value >> 8 * i & 0xFF);
    }
    return low;
}

std::string ExtraField(uint16_t id, const std::string& data) {
    return LittleEndian(id, 2) + LittleEndian(data.size(), 2) + data;
}

std::string UnicodePathField(const std::string& rawName, const std::string& name, uint32_t error) {
    return ExtraField(0x7075, LittleEndian(1, 1) + LittleEndian(Crc32(rawName) + error, 4) + name);
}

std::string TimeField(int32_t seconds) {
    return ExtraField(0x5455, LittleEndian(1, 1) + LittleEndian(static_cast<uint32_t>(seconds), 4));
}

uint32_t Crc32(const std::string& data) {
    return static_cast<uint32_t>(
        ::crc32(0, reinterpret_cast<const unsigned char*>(data.data()), static_cast<uInt>(data.size())));
}

std::string RawDeflate(const std::string& data) {
    return Deflate(data, Z_FINISH);
}

}  // namespace kx::test
