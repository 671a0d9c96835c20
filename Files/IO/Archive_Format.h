#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// The records of a zip archive, as PKWARE's APPNOTE.TXT 6.3 lays them out (its section 4.3): where their fields are,
/// in bytes from their start. All numbers are little-endian.
namespace kx::layout {

/// Before each entry's bytes.
struct Local {
    static constexpr uint32_t kSignature = 0x04034B50;
    static constexpr size_t kSize = 30;
    static constexpr size_t kFlags = 6, kMethod = 8, kCrc = 14, kPackedSize = 18, kUnpackedSize = 22, kNameLength = 26,
                            kExtraLength = 28;
};

/// One entry of the directory.
struct Central {
    static constexpr uint32_t kSignature = 0x02014B50;
    static constexpr size_t kSize = 46;
    static constexpr size_t kFlags = 8, kMethod = 10, kTime = 12, kDate = 14, kCrc = 16, kPackedSize = 20,
                            kUnpackedSize = 24, kNameLength = 28, kExtraLength = 30, kCommentLength = 32, kDisk = 34,
                            kAttributes = 38, kOffset = 42;
};

/// The end of the archive, after which only its comment follows.
struct End {
    static constexpr uint32_t kSignature = 0x06054B50;
    static constexpr size_t kSize = 22;
    static constexpr size_t kDisk = 4, kDirectoryDisk = 6, kEntriesHere = 8, kEntries = 10, kDirectorySize = 12,
                            kDirectoryOffset = 16, kCommentLength = 20;
    static constexpr size_t kMaxComment = 0xFFFF;
};

/// Right before the end, where numbers do not fit there: where the larger end is.
struct End64Locator {
    static constexpr uint32_t kSignature = 0x07064B50;
    static constexpr size_t kSize = 20;
    static constexpr size_t kOffset = 8;
};

struct End64 {
    static constexpr uint32_t kSignature = 0x06064B50;
    static constexpr size_t kSize = 56;
    static constexpr size_t kDisk = 16, kDirectoryDisk = 20, kEntriesHere = 24, kEntries = 32, kDirectorySize = 40,
                            kDirectoryOffset = 48;
};

/// Extra fields, each an id and a length of two bytes and then its data.
constexpr uint16_t kExtra64 = 0x0001;           ///< the sizes and the offset, those that do not fit their fields
constexpr uint16_t kExtraTime = 0x5455;         ///< modification time, seconds since 1970
constexpr uint16_t kExtraUnicodeName = 0x7075;  ///< the name in UTF-8, with a checksum of the one that it is for

/// Flags of an entry.
constexpr unsigned int kEncrypted = 1u << 0 | 1u << 6 | 1u << 13;
constexpr unsigned int kMethodOptions = 1u << 1 | 1u << 2;
constexpr unsigned int kSizesFollow = 1u << 3;
constexpr unsigned int kUtf8Name = 1u << 11;

/// What a field holds whose number does not fit.
constexpr uint32_t kElsewhere = 0xFFFFFFFF;
constexpr uint16_t kElsewhere16 = 0xFFFF;

template <class Number>
Number Get(const char* record, size_t offset) {
    Number number = 0;
    for (size_t i = 0; i < sizeof number; ++i) {
        number = static_cast<Number>(number | static_cast<Number>(static_cast<unsigned char>(record[offset + i]))
                                                  << (8 * i));
    }
    return number;
}

template <class Number>
void Put(std::vector<char>* record, size_t offset, Number number) {
    for (size_t i = 0; i < sizeof number; ++i) {
        (*record)[offset + i] = static_cast<char>(number >> (8 * i) & 0xFF);
    }
}

/// Calls `visit` with the id and the data of each extra field. What is left at the end and is none is no fault: tools
/// that align entries leave it there.
template <class Visit>
void ForEachExtra(std::string_view extras, Visit visit) {
    constexpr size_t kHead = 4;
    while (extras.size() >= kHead) {
        auto id = Get<uint16_t>(extras.data(), 0);
        size_t size = Get<uint16_t>(extras.data(), 2);
        if (size > extras.size() - kHead) return;
        visit(id, extras.substr(kHead, size));
        extras.remove_prefix(kHead + size);
    }
}

}  // namespace kx::layout
