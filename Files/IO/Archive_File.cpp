// Unpacking an entry of an archive.
//
// The library is given each entry as an archive of its own, whose headers are made here from what has been checked and
// whose packed bytes are the entry's. So it never reads a directory that anybody else has written, entries are unpacked
// on several threads at a time, and what it needs does not grow with the archive.
#include "Files/IO/Archive.h"
#include "Files/IO/Archive_Format.h"

#include "Files/Base/Limits.h"
#include "Platform/ZipLibrary.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kx {
namespace {

using layout::Central;
using layout::End;
using layout::Local;
using layout::Put;

constexpr size_t kNameSize = 1;
constexpr size_t kExtraSize = 4 + 2 * sizeof(uint64_t);
constexpr size_t kCentralSize = Central::kSize + kNameSize + kExtraSize;
constexpr size_t kHeadSize = kCentralSize + Local::kSize + kNameSize;

/// The directory and the entry's own header, which come first.
std::vector<char> MakeHead(const ArchiveEntry& entry) {
    std::vector<char> head(kHeadSize);
    auto options = static_cast<uint16_t>(entry.flags & layout::kMethodOptions);
    Put(&head, 0, Central::kSignature);
    Put(&head, Central::kFlags, options);
    Put(&head, Central::kMethod, entry.method);
    Put(&head, Central::kCrc, entry.crc);
    Put(&head, Central::kPackedSize, layout::kElsewhere);
    Put(&head, Central::kUnpackedSize, layout::kElsewhere);
    Put(&head, Central::kNameLength, static_cast<uint16_t>(kNameSize));
    Put(&head, Central::kExtraLength, static_cast<uint16_t>(kExtraSize));
    Put(&head, Central::kOffset, static_cast<uint32_t>(kCentralSize));
    head[Central::kSize] = 'f';
    size_t extra = Central::kSize + kNameSize;
    Put(&head, extra, layout::kExtra64);
    Put(&head, extra + 2, static_cast<uint16_t>(kExtraSize - 4));
    Put(&head, extra + 4, entry.size);
    Put(&head, extra + 4 + sizeof entry.size, entry.packedSize);

    Put(&head, kCentralSize, Local::kSignature);
    Put(&head, kCentralSize + Local::kFlags, options);
    Put(&head, kCentralSize + Local::kMethod, entry.method);
    Put(&head, kCentralSize + Local::kNameLength, static_cast<uint16_t>(kNameSize));
    head[kCentralSize + Local::kSize] = 'f';
    return head;
}

std::vector<char> MakeEnd() {
    std::vector<char> end(End::kSize);
    Put(&end, 0, End::kSignature);
    Put(&end, End::kEntriesHere, static_cast<uint16_t>(1));
    Put(&end, End::kEntries, static_cast<uint16_t>(1));
    Put(&end, End::kDirectorySize, static_cast<uint32_t>(kCentralSize));
    return end;
}

/// Zero bytes between the packed bytes and the end: where the library looks for an end it must not find one that the
/// packed bytes hold.
constexpr uint64_t kGap = End::kSize + End::kMaxComment + layout::End64Locator::kSize;

constexpr char kWrongChecksum[] = "has a wrong checksum";
constexpr char kShorter[] = "is shorter than its directory says";

/// Methods that look back no further than a fixed, small stretch.
bool HasSmallWindow(uint16_t method) {
    return method == ZIP_CM_STORE || method == ZIP_CM_DEFLATE || method == ZIP_CM_BZIP2;
}

}  // namespace

/// The archive of one entry, as the library reads it.
class ArchiveFile::Packed {
public:
    Packed(const ZipLibrary& library, const ArchiveBytes& bytes, const ArchiveEntry& entry, uint64_t data)
        : m_library(library), m_bytes(bytes), m_data(data), m_packedSize(entry.packedSize), m_head(MakeHead(entry)),
          m_end(MakeEnd()) {
        m_library.error_init(&m_error);
    }
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;
    ~Packed() { m_library.error_fini(&m_error); }

    static zip_int64_t Serve(void* context, void* data, zip_uint64_t length, zip_source_cmd_t command) {
        return static_cast<Packed*>(context)->Serve(data, length, command);
    }

private:
    zip_int64_t Serve(void* data, zip_uint64_t length, zip_source_cmd_t command) {
        switch (command) {
        case ZIP_SOURCE_OPEN: m_position = 0; return 0;
        case ZIP_SOURCE_READ: return Read(static_cast<char*>(data), length);
        case ZIP_SOURCE_SEEK: return Seek(static_cast<const zip_source_args_seek*>(data));
        case ZIP_SOURCE_TELL: return static_cast<zip_int64_t>(m_position);
        case ZIP_SOURCE_STAT: return Stat(static_cast<zip_stat_t*>(data));
        case ZIP_SOURCE_ERROR: return m_library.error_to_data(&m_error, data, length);
        case ZIP_SOURCE_SUPPORTS: return ZIP_SOURCE_SUPPORTS_SEEKABLE;
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_FREE: return 0;
        default: return Fail(ZIP_ER_OPNOTSUPP, 0);
        }
    }

    zip_int64_t Fail(int code, int reason) {
        m_library.error_set(&m_error, code, reason);
        return -1;
    }

    [[nodiscard]] uint64_t Size() const { return m_head.size() + m_packedSize + kGap + m_end.size(); }

    zip_int64_t Stat(zip_stat_t* status) const {
        status->valid = ZIP_STAT_SIZE;
        status->size = Size();
        return sizeof *status;
    }

    zip_int64_t Seek(const zip_source_args_seek* target) {
        auto from = static_cast<int64_t>(target->whence == SEEK_SET   ? 0
                                         : target->whence == SEEK_END ? Size()
                                                                      : m_position);
        int64_t position = from + target->offset;
        bool inside = position >= 0 && static_cast<uint64_t>(position) <= Size();
        if (!inside) return Fail(ZIP_ER_INVAL, 0);
        m_position = static_cast<uint64_t>(position);
        return 0;
    }

    zip_int64_t Read(char* out, uint64_t length) {
        auto wanted = static_cast<size_t>(std::min(length, Size() - m_position));
        for (size_t done = 0; done < wanted;) {
            size_t count = 0;
            if (int reason = ReadPart(out + done, wanted - done, &count)) return Fail(ZIP_ER_READ, reason);
            done += count;
            m_position += count;
        }
        return static_cast<zip_int64_t>(wanted);
    }

    /// Reads what the part at the position has, at most `room` bytes.
    [[nodiscard]] int ReadPart(char* out, size_t room, size_t* count) const {
        uint64_t at = m_position;  // then in the part
        auto isIn = [&](uint64_t partSize) {
            bool inside = at < partSize;
            if (inside) *count = static_cast<size_t>(std::min<uint64_t>(room, partSize - at));
            if (!inside) at -= partSize;
            return inside;
        };
        if (isIn(m_head.size())) {
            std::memcpy(out, &m_head[static_cast<size_t>(at)], *count);
        } else if (isIn(m_packedSize)) {
            return m_bytes.Read(m_data + at, out, *count);
        } else if (isIn(kGap)) {
            std::memset(out, 0, *count);
        } else if (isIn(m_end.size())) {
            std::memcpy(out, &m_end[static_cast<size_t>(at)], *count);
        }
        return 0;
    }

    const ZipLibrary& m_library;
    const ArchiveBytes& m_bytes;
    uint64_t m_data;  // where the packed bytes are in the archive
    uint64_t m_packedSize;
    std::vector<char> m_head;
    std::vector<char> m_end;
    uint64_t m_position = 0;
    zip_error_t m_error{};
};

std::string FaultOfPacking(const ArchiveEntry& entry) {
    if (entry.flags & layout::kEncrypted) return "is encrypted";
    std::string reason;
    const ZipLibrary* library = ZipLibrary::Load(&reason);
    if (!library) return "cannot be unpacked: " + reason;
    if (!library->compression_method_supported(entry.method, 0)) {
        return "is compressed by a method that cannot be undone (method " + std::to_string(entry.method) + ")";
    }
    bool bounded = HasSmallWindow(entry.method) || entry.size <= kMaxArchiveWindow;
    if (!bounded) return "is too large for the method that compresses it";
    bool contradiction = entry.method == ZIP_CM_STORE && entry.size != entry.packedSize;
    return contradiction ? "contradicts the directory" : "";
}

std::unique_ptr<ArchiveFile> ArchiveFile::Open(const Archive& archive, const ArchiveEntry& entry, std::string* fault) {
    *fault = FaultOfPacking(entry);
    if (!fault->empty()) return nullptr;
    std::optional<Archive::Range> range = archive.Locate(entry, fault);
    const ZipLibrary* library = ZipLibrary::Load(fault);
    if (!range || !library) return nullptr;
    std::unique_ptr<ArchiveFile> file(new ArchiveFile(*library, entry));
    file->m_packed = std::make_unique<Packed>(*library, archive.Bytes(), entry, range->data);
    *fault = file->Begin();
    return fault->empty() ? std::move(file) : nullptr;
}

/// @return what went wrong; empty for nothing.
std::string ArchiveFile::Begin() {
    zip_error_t error;
    m_library.error_init(&error);
    zip_source_t* source = m_library.source_function_create(Packed::Serve, m_packed.get(), &error);
    if (source) m_zip = m_library.open_from_source(source, ZIP_RDONLY, &error);
    bool refused = source && !m_zip;
    if (refused) m_library.source_free(source);
    int code = m_library.error_code_zip(&error);
    int reason = m_library.error_code_system(&error);
    m_library.error_fini(&error);
    if (!m_zip) return FaultOf(code, reason);
    m_file = m_library.fopen_index(m_zip, 0, 0);
    return m_file ? "" : FaultOf(*m_library.get_error(m_zip));
}

ArchiveFile::ArchiveFile(const ZipLibrary& library, const ArchiveEntry& entry)
    : m_library(library), m_size(entry.size), m_crc(entry.crc) {}

ArchiveFile::~ArchiveFile() {
    if (m_file) m_library.fclose(m_file);
    if (m_zip) m_library.discard(m_zip);
}

ssize_t ArchiveFile::Read(char* data, size_t size, std::string* fault) {
    zip_int64_t count = m_library.fread(m_file, data, size);
    if (count > 0) m_done += static_cast<uint64_t>(count);
    if (m_done > m_size) {
        *fault = "is longer than its directory says";
    } else if (count < 0) {
        *fault = FaultOfRead();
    } else if (count == 0 && m_done < m_size) {
        *fault = kShorter;
    } else if (count == 0 && m_size == 0 && m_crc != 0) {  // the library does not look at what is empty
        *fault = kWrongChecksum;
    } else {
        return static_cast<ssize_t>(count);
    }
    return -1;
}

std::string ArchiveFile::FaultOfRead() const {
    const zip_error_t& error = *m_library.file_get_error(m_file);
    bool ended = m_library.error_code_zip(&error) == ZIP_ER_CRC && m_done < m_size;
    return ended ? kShorter : FaultOf(error);
}

std::string ArchiveFile::FaultOf(const zip_error_t& error) const {
    return FaultOf(m_library.error_code_zip(&error), m_library.error_code_system(&error));
}

std::string ArchiveFile::FaultOf(int code, int reason) {
    switch (code) {
    case ZIP_ER_MEMORY: throw std::bad_alloc();
    case ZIP_ER_CRC: return kWrongChecksum;
    case ZIP_ER_READ: return FaultOfReading(reason);
    default: return "is damaged";
    }
}

}  // namespace kx
