// What the names of entries mean.
#include "Files/IO/Archive_Name.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Utf8.h"
#include "Files/IO/Archive_Format.h"
#include "Platform/Platform_File.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <zlib.h>

namespace kx {
namespace {

/// Code page 437 above ASCII, as the Unicode Consortium's CP437.TXT maps it.
constexpr char16_t kCodePage437[] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
    0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
    0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
    0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
    0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
    0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
    0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
    0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
    0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

std::string FromCodePage437(std::string_view text) {
    std::string utf8;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        AppendUtf8(&utf8, byte < 0x80 ? byte : kCodePage437[byte - 0x80]);
    }
    return utf8;
}

constexpr size_t kUnicodeNameHead = 5;  // a version and a checksum

/// The name that a Unicode extra field has; empty where it is not for this one.
std::string_view UnicodeName(std::string_view raw, std::string_view extra) {
    if (extra.size() < kUnicodeNameHead || extra[0] != 1) return {};
    auto crc = ::crc32(0, reinterpret_cast<const Bytef*>(raw.data()), static_cast<uInt>(raw.size()));
    bool current = layout::Get<uint32_t>(extra.data(), 1) == crc;
    std::string_view name = extra.substr(kUnicodeNameHead);
    return current && IsUtf8(name) ? name : std::string_view();
}

constexpr size_t kShownName = 200;  // bytes

constexpr char kTooLong[] = "is too long";

const char* FaultOfComponent(std::string_view component) {
    if (component.empty()) return "holds an empty component";
    if (component == ".") return "holds a component \".\"";
    if (component == "..") return "leaves its folder";
    if (component.substr(0, std::strlen(kTemporaryPrefix)) == kTemporaryPrefix) return "is reserved";
    return component.size() > NAME_MAX ? kTooLong : nullptr;
}

/// What is wrong with a name before its components are looked at.
const char* FaultOfWhole(std::string_view name) {
    if (name.find('\0') != std::string_view::npos) return "holds a zero byte";
    if (!IsUtf8(name)) return "is not UTF-8";
    if (HasControls(name)) return "holds control characters";
    if (name.size() >= static_cast<size_t>(kMaxPath)) return kTooLong;
    if (name.find_first_not_of("/\\") == std::string_view::npos) return "has no name";
    if (name[0] == '/' || name[0] == '\\') return "is an absolute path";
    bool letter = (name[0] >= 'a' && name[0] <= 'z') || (name[0] >= 'A' && name[0] <= 'Z');
    return letter && name.size() > 1 && name[1] == ':' ? "begins with a drive" : nullptr;
}

}  // namespace

std::optional<std::string> DecodeArchiveName(std::string_view raw, std::string_view unicodeName) {
    std::string_view unicode = UnicodeName(raw, unicodeName);
    if (!unicode.empty()) return std::string(unicode);
    return IsUtf8(raw) ? std::nullopt : std::optional<std::string>(FromCodePage437(raw));
}

std::optional<std::string> PlaceOfEntry(std::string_view name, const char** fault) {
    *fault = FaultOfWhole(name);
    if (*fault) return std::nullopt;
    std::string place(name);
    std::replace(place.begin(), place.end(), '\\', '/');
    if (place.back() == '/') place.pop_back();
    for (size_t start = 0; start <= place.size();) {
        size_t slash = std::min(place.find('/', start), place.size());
        *fault = FaultOfComponent(std::string_view(place).substr(start, slash - start));
        if (*fault) return std::nullopt;
        start = slash + 1;
    }
    return place;
}

std::string FaultOfEntry(std::string_view name, std::string_view what) {
    std::string shown = Printable(name.substr(0, kShownName));
    if (name.size() > kShownName) shown += "...";
    return "entry \"" + shown + "\" " + std::string(what);
}

}  // namespace kx
