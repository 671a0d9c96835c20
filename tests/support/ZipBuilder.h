#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Zip archives, made byte by byte: good ones, and every kind of broken one.
///
///     Build({{"a.txt", "contents"}, Deflated("b.txt", "more")})
///     Build({Changed({"a", "x"}, [](ZipEntry& entry) { entry.local.crc = 1; })})   // the two headers differ
///
/// A field that a test does not set comes out right.
namespace kx::test {

constexpr uint16_t kStored = 0;
constexpr uint16_t kDeflated = 8;

constexpr uint16_t kEncrypted = 1;       // bits of the flags
constexpr uint16_t kWithDescriptor = 8;  // the local header has zeros, the sizes follow the bytes
constexpr uint16_t kUtf8Name = 1 << 11;

constexpr uint8_t kDos = 0;  // systems that an entry may be made by
constexpr uint8_t kUnix = 3;

/// What one of an entry's two headers says otherwise.
struct ZipHeader {
    std::optional<uint32_t> signature = {};
    std::optional<uint16_t> flags = {};
    std::optional<uint16_t> method = {};
    std::optional<uint32_t> crc = {};
    std::optional<uint64_t> packedSize = {};
    std::optional<uint64_t> size = {};
    std::optional<std::string> name = {};
    std::string extra = {};  ///< whole fields, see ExtraField
};

struct ZipEntry {
    std::string name = {};
    std::string contents = {};
    uint16_t method = kStored;
    uint16_t flags = 0;
    uint8_t system = kDos;
    uint32_t attributes = 0;
    uint16_t date = 0x2A43;  ///< 2001-02-03
    uint16_t time = 0x20A3;  ///< 04:05:06
    bool zip64 = false;      ///< sizes and offset in an extra field, 0xFFFFFFFF in their places
    std::string comment = {};

    std::optional<std::string> packed = {};  ///< in place of what the method makes of the contents
    std::optional<uint32_t> crc = {};        ///< in both headers and the descriptor
    std::optional<uint64_t> size = {};       ///< as crc
    std::optional<uint64_t> offset = {};     ///< in the directory
    uint16_t disk = 0;
    bool descriptorSigned = true;
    bool onlyInDirectory = false;  ///< neither local header nor bytes
    ZipHeader local = {};
    ZipHeader central = {};
};

/// What the records at the end say otherwise.
struct ZipEnd {
    std::optional<uint32_t> signature = {};
    std::optional<uint32_t> disk = {};
    std::optional<uint32_t> directoryDisk = {};
    std::optional<uint64_t> entriesHere = {};
    std::optional<uint64_t> entries = {};
    std::optional<uint64_t> directorySize = {};
    std::optional<uint64_t> directoryOffset = {};
};

/// What an archive consists of beside its entries.
struct ZipFrame {
    std::string prefix = {};           ///< before the first entry
    bool prefixCounts = true;          ///< offsets count it
    std::string beforeDirectory = {};  ///< between the last entry and the directory
    std::string comment = {};
    std::optional<uint16_t> commentSize = {};
    std::string after = {};  ///< behind the comment
    bool zip64 = false;      ///< the zip64 records, and nothing but 0xFF in the places of the plain one
    ZipEnd end = {};
    ZipEnd end64 = {};                         ///< of the zip64 record
    std::optional<uint64_t> end64Offset = {};  ///< in the locator
    std::optional<uint32_t> end64Disk = {};    ///< as end64Offset
};

/// Builds an archive an entry at a time.
class ZipBuilder {
public:
    explicit ZipBuilder(ZipFrame frame = {});

    void Add(const ZipEntry& entry);

    /// Where the next entry's local header begins, as offsets count.
    [[nodiscard]] uint64_t Offset() const;

    /// @return the archive's bytes.
    [[nodiscard]] std::string Finish() const;

private:
    [[nodiscard]] std::string End64(uint64_t offset) const;
    [[nodiscard]] std::string End(uint64_t offset) const;

    ZipFrame m_frame;
    std::string m_bytes;
    std::string m_directory;
    uint64_t m_entries = 0;
};

std::string Build(const std::vector<ZipEntry>& entries, const ZipFrame& frame = {});

/// The local header of an entry with its bytes and its descriptor.
std::string LocalBytes(const ZipEntry& entry);

template <class Change>
ZipEntry Changed(ZipEntry entry, Change change) {
    change(entry);
    return entry;
}

ZipEntry Deflated(const std::string& name, const std::string& contents);

/// An entry as unix systems make it.
/// @param mode  kind and permission bits, as stat has them.
ZipEntry UnixEntry(const std::string& name, uint32_t mode, const std::string& contents = "");

/// An entry of zeros, a multiple of a MiB, that takes a thousandth of its size.
ZipEntry Zeros(const std::string& name, uint64_t mebibytes);

std::string LittleEndian(uint64_t value, int bytes);
std::string ExtraField(uint16_t id, const std::string& data);

/// The fields for a name in UTF-8 beside a raw one, and for a modification time.
/// @param error  what the raw name's checksum is to be wrong by.
std::string UnicodePathField(const std::string& rawName, const std::string& name, uint32_t error = 0);
std::string TimeField(int32_t seconds);

uint32_t Crc32(const std::string& data);
std::string RawDeflate(const std::string& data);

}  // namespace kx::test
