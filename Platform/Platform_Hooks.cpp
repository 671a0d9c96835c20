// What the module asks of each platform: attributes of files, and searches. Here for Linux.
#include "Platform/Platform_Hooks.h"

#include "Files/Base/Number.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <fnmatch.h>
#include <optional>
#include <string>
#include <utility>

using kx::Area;
using kx::BundleArea;
using kx::DirectoryEntry;
using kx::EntryKind;
using kx::SaveArea;

namespace {

/// The bits that files have and that searches ask for. Nothing here is a system file, which would be 4.
enum Attribute : int { kReadOnly = 1, kHidden = 2, kDirectory = 16, kArchive = 32 };

constexpr mode_t kAnyWriter = S_IWUSR | S_IWGRP | S_IWOTH;

bool IsHidden(const std::string& leaf) {
    return !leaf.empty() && leaf[0] == '.';
}

/// Makes a character of a mask a character of UTF-8, whatever the locale of the program is.
class Utf8Characters {
public:
    Utf8Characters() {
        static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK | LC_COLLATE_MASK, "C.UTF-8", nullptr);
        if (utf8) m_before = ::uselocale(utf8);
    }
    Utf8Characters(const Utf8Characters&) = delete;
    Utf8Characters& operator=(const Utf8Characters&) = delete;
    ~Utf8Characters() {
        if (m_before) ::uselocale(m_before);
    }

private:
    locale_t m_before = nullptr;
};

/// Tells names that a mask lets through. A mask is a pattern as the shell's, without escapes: "\" separates folders.
class Mask {
public:
    explicit Mask(const std::string& pattern) : m_pattern(pattern), m_all(pattern == "*" || pattern == "*.*") {}

    [[nodiscard]] bool Matches(const std::string& name) const {
        return m_all || ::fnmatch(m_pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0;
    }

private:
    std::string m_pattern;
    bool m_all;
    Utf8Characters m_characters;
};

/// Files are always asked for, hidden ones and directories where their bits are.
bool IsAskedFor(const DirectoryEntry& entry, int filter) {
    if (IsHidden(entry.name) && !(filter & kHidden)) return false;
    return entry.kind == EntryKind::file || (filter & kDirectory);
}

}  // namespace

std::vector<std::string> kx::FindNames(const Area& area, const char* mask, int filter) {
    std::vector<std::string> names;
    std::optional<std::string> place = area.Place(mask);
    if (!place || place->empty()) return names;
    std::vector<DirectoryEntry> entries;
    int reason = area.List(ParentOf(*place), &entries);
    bool noDirectory = reason == ENOENT || reason == ENOTDIR;
    if (reason && !noDirectory) dbg_csol->Output("Failed to list files: %s (%s)\n", mask, std::strerror(reason));

    Mask wanted(LeafOf(*place));
    for (DirectoryEntry& entry : entries) {
        if (IsAskedFor(entry, filter) && wanted.Matches(entry.name)) names.push_back(std::move(entry.name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

int KXGetFileAttributes(const char* path, bool isSave) {
    const Area& area = isSave ? SaveArea() : BundleArea();
    std::optional<std::string> place = area.Place(path);
    struct stat status {};
    if (!place || area.Look(*place, &status) != 0) return 0;
    if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) return 0;
    int attributes = S_ISDIR(status.st_mode) ? kDirectory : kArchive;
    if (!(status.st_mode & kAnyWriter)) attributes |= kReadOnly;
    if (IsHidden(kx::LeafOf(*place))) attributes |= kHidden;
    return attributes;
}

void CreateFindData(kxFindData* data, const char* saveMask, const char* bundleMask, double attributes) {
    int filter = kx::ToInt32(attributes);
    auto add = [&](const Area& area, const char* mask) {
        for (const std::string& name : kx::FindNames(area, mask, filter)) {
            data->AddFile(name.c_str());
        }
    };
    add(SaveArea(), saveMask);
    add(BundleArea(), bundleMask);
}
