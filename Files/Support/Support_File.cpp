// Directories, and the parts of file names.
#include "Files/Support/Support_File.h"

#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave_Open.h"
#include "Files/Support/Csv.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

using kx::Area;
using kx::BundleArea;
using kx::SaveArea;

namespace {

bool HasDirectory(const Area& area, const char* path) {
    std::optional<std::string> place = area.Place(path);
    return place && area.HasDirectory(*place);
}

// --- file names -----------------------------------------------------------------------------------------------------

constexpr char kSeparators[] = "/\\";

/// Where the last component begins.
size_t NameStart(std::string_view name) {
    size_t separator = name.find_last_of(kSeparators);
    return separator == std::string_view::npos ? 0 : separator + 1;
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string_view DriveOf(std::string_view name) {
    bool letter = name.size() >= 2 && IsLetter(name[0]) && name[1] == ':';
    if (letter) return name.substr(0, 2);
    if (name.substr(0, 2) != "\\\\") return {};
    size_t server = name.find_first_of(kSeparators, 2);  // where each ends
    if (server == 2 || server == std::string_view::npos) return {};
    size_t share = std::min(name.find_first_of(kSeparators, server + 1), name.size());
    return share > server + 1 ? name.substr(0, share) : std::string_view();
}

std::string_view ExtensionOf(std::string_view name) {
    std::string_view last = name.substr(NameStart(name));
    size_t dot = last.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : last.substr(dot);
}

char* Copy(std::string_view text) {
    return KXStrDup(std::string(text).c_str());
}

}  // namespace

int ForceDirectories(const char* path) {
    if (std::optional<std::string> place = SaveArea().Place(path)) return SaveArea().MakeDirectories(*place) == 0;
    return HasDirectory(BundleArea(), path);
}

int DirectoryExists(const char* path) {
    return HasDirectory(SaveArea(), path) || HasDirectory(BundleArea(), path);
}

int DestroyDir(const char* path) {
    std::optional<std::string> place = SaveArea().Place(path);
    int reason = place ? SaveArea().RemoveTree(*place) : EXDEV;
    bool missing = reason == ENOENT || reason == ENOTDIR;
    if (reason && !missing)
        dbg_csol->Output("Failed to remove directory: %s (%s)\n", path ? path : "", std::strerror(reason));
    return reason == 0;
}

int LoadCSV(char* name) {
    std::string fault;
    kx::TextRows rows;
    kx::Contents text = kx::LoadExisting(name);
    bool read = text ? kx::ReadCsv(std::move(text), &rows, &fault) : false;
    if (!read) {
        const char* why = fault.empty() ? kx::WhyUnreadable(errno) : fault.c_str();
        dbg_csol->Output("Failed to load CSV file: %s (%s)\n", name ? name : "", why);
        return -1;
    }
    auto grid = std::make_unique<CDS_Grid>(std::move(rows));
    DS_AutoMutex lock;
    int index = FindFreeDsGridIndex();
    thegrids.arr[index] = grid.release();
    return index;
}

char* ExtractFileName(const char* name) {
    return name ? Copy(name + NameStart(name)) : nullptr;
}

char* ExtractFilePath(const char* name, bool /*flag*/) {
    return name ? Copy(std::string_view(name).substr(0, NameStart(name))) : nullptr;
}

char* ExtractFileDrive(const char* name) {
    return name ? Copy(DriveOf(name)) : nullptr;
}

char* ExtractFileExt(const char* name) {
    return name ? Copy(ExtensionOf(name)) : nullptr;
}
