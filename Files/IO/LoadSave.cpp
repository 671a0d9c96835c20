// Names in the areas, whole files, and reading and writing of virtual files.
#include "Files/IO/LoadSave.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Number.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave_ArchiveArea.h"
#include "Files/IO/LoadSave_Open.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

using kx::Area;
using kx::BundleArea;
using kx::Descriptor;
using kx::DirectoryArea;
using kx::SaveArea;

namespace {

// --- names ----------------------------------------------------------------------------------------------------------

/// A look that fails tells nothing: whoever gets "no" then has to know.
bool FileExists(const Area& area, const char* name) {
    std::optional<std::string> place = area.Place(name);
    if (!place || !area.IsSet()) return false;
    struct stat status {};
    int reason = area.Look(*place, &status);
    bool unknown = reason && !kx::MeansNoFile(reason);
    if (unknown)
        dbg_csol->Output("Cannot look for a file in the %s: %s (%s)\n", area.Title(), name, std::strerror(reason));
    return reason == 0 && S_ISREG(status.st_mode);
}

int Refuse(const char* name, const Area& area, const char* fault, int reason) {
    dbg_csol->Output("File name refused for the %s: \"%s\" %s\n", area.Title(), name ? name : "", fault);
    return reason;
}

int WritePath(const Area& area, char* out, int size, const char* name) {
    out[0] = 0;
    const char* fault = nullptr;
    std::optional<std::string> place = area.Place(name, &fault);
    if (!place) return Refuse(name, area, fault, EXDEV);
    if (int reason = area.Contain(*place)) return Refuse(name, area, std::strerror(reason), reason);
    std::string path = area.FullPath(*place);
    if (path.size() >= static_cast<size_t>(size)) return Refuse(name, area, "is too long", ENAMETOOLONG);
    std::memcpy(out, path.c_str(), path.size() + 1);
    return 0;
}

/// True for the full path of something in one area, which has no place in the other: no fault of the name's, for many
/// lookups try both.
bool LiesIn(const Area& area, const Area& other, const char* name) {
    return !other.Place(name) && area.Place(name);
}

/// @return the reason for a name that an area says nothing about.
int NotHere(char* out) {
    out[0] = 0;
    return ENOENT;
}

constexpr char kBundleTitle[] = "bundle area";

int SetArchive(const char* path) {
    auto area = std::make_unique<kx::ArchiveArea>(kBundleTitle);
    int reason = area->Open(path);
    if (reason == 0) kx::SetBundle(std::move(area));
    return reason;
}

// --- reading and writing --------------------------------------------------------------------------------------------

/// @return the bytes written: all of them, or none after KXError.
unsigned Write(_KXFILE* file, const void* data, size_t size) {
    if (!file || !file->writeBack || size == 0) return 0;
    if (file->append) file->pBuff->Seek(eBuffer_End, 0);
    bool written = size <= static_cast<size_t>(kx::kMaxFileBytes) && file->pBuff->Write(data, static_cast<int>(size));
    if (!written) {
        KXError("Failed to write file: %s (%s)", file->pName, std::strerror(EFBIG));
        return 0;
    }
    file->changed = true;
    return static_cast<unsigned>(size);
}

/// Copies `length` characters from the position and moves past them.
int Take(_KXFILE* file, char* out, size_t length) {
    std::memcpy(out, file->pBuff->m_data + file->pBuff->m_position, length);
    file->pBuff->m_position += static_cast<int>(length);
    return static_cast<int>(length);
}

/// What lies ahead of the position, at most `room` characters.
std::string_view Ahead(const _KXFILE* file, int room) {
    const IBuffer* buffer = file->pBuff;
    int left = std::min(buffer->m_size - buffer->m_position, room);
    return {buffer->m_data + buffer->m_position, static_cast<size_t>(left)};
}

bool IsBlankOrLineEnd(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

// --- the areas ------------------------------------------------------------------------------------------------------

int LoadSave::SetSaveArea(const char* directory) {
    if (directory && std::strchr(directory, '\\')) return EINVAL;
    if (kx::AnyFileOpenForWriting()) return EBUSY;
    if (int reason = SaveArea().SetRoot(directory, true)) return reason;
    kx::SweepTemporaries(SaveArea().Root());
    return 0;
}

int LoadSave::SetBundleArea(const char* directoryOrZip) {
    auto area = std::make_unique<DirectoryArea>(kBundleTitle);
    int reason = area->SetRoot(directoryOrZip, false);
    if (reason == 0) kx::SetBundle(std::move(area));
    return reason == ENOTDIR ? SetArchive(directoryOrZip) : reason;
}

bool LoadSave::SaveFileExists(const char* name) {
    return FileExists(SaveArea(), name);
}

bool LoadSave::BundleFileExists(const char* name) {
    return FileExists(BundleArea(), name);
}

int LoadSave::_GetSaveFileName(char* out, int size, const char* name) {
    if (LiesIn(BundleArea(), SaveArea(), name)) return NotHere(out);
    return WritePath(SaveArea(), out, size, name);
}

int LoadSave::_GetBundleFileName(char* out, int size, const char* name) {
    if (!BundleArea().IsSet() || LiesIn(SaveArea(), BundleArea(), name)) return NotHere(out);
    return WritePath(BundleArea(), out, size, name);
}

void LoadSave::SetDurability(kx::Durability durability) {
    SaveArea().SetDurability(durability);
}

// --- whole files ----------------------------------------------------------------------------------------------------

int LoadSave::RemoveSaveFile(const char* name) {
    std::optional<std::string> place = SaveArea().Place(name);
    if (!place || place->empty()) return 0;
    Descriptor directory = SaveArea().OpenDirectoryOf(*place);
    std::string leaf = kx::LeafOf(*place);
    struct stat status {};
    bool found = directory &&
                 kx::g_systemCalls.fstatat(directory.Get(), leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                 (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode));
    return found && kx::g_systemCalls.unlinkat(directory.Get(), leaf.c_str(), 0) == 0;
}

int LoadSave::RenameSaveFile(const char* oldPath, const char* newPath) {
    std::optional<std::string> from = SaveArea().Place(oldPath);
    std::optional<std::string> to = SaveArea().Place(newPath);
    int reason = EXDEV;
    if (from && to) {
        std::string path = SaveArea().FullPath(*from);
        bool writing = kx::IsOpenForWriting(path);  // what it will hold is not on the disk yet
        if (writing) dbg_csol->Output("File keeps its name while it is open for writing: %s\n", path.c_str());
        reason = writing ? EBUSY : SaveArea().Rename(*from, *to);
    }
    if (reason == 0) return 0;
    errno = reason;
    return -1;
}

char* LoadSave::ReadBundleFile(const char* name, int* size) {
    std::optional<std::string> place = BundleArea().Place(name);
    if (!place) return nullptr;
    try {
        kx::Contents contents = BundleArea().Load(*place);
        if (!contents) return nullptr;
        *size = contents->m_size;
        return std::exchange(contents->m_data, nullptr);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int LoadSave::WriteFile(const char* name, const char* data, int length, ASYNC_SAVE_LOAD_REQ_CONTEXT* /*ctx*/) {
    if (!data || length < 0) return 0;
    std::optional<std::string> place = kx::PlaceToWrite(name);
    bool valid = place && !place->empty() && SaveArea().IsSet();
    int reason = valid ? SaveArea().Replace(*place, data, length) : EXDEV;
    if (reason) dbg_csol->Output("Failed to write file: %s (%s)\n", name ? name : "", std::strerror(reason));
    return reason == 0;
}

// --- virtual files --------------------------------------------------------------------------------------------------

int LoadSave::ReadThroughLine(_KXFILE* file, char* out, int room) {
    if (kxfeof(file)) return 0;
    std::string_view ahead = Ahead(file, room);
    size_t lineFeed = ahead.find('\n');
    return Take(file, out, lineFeed == std::string_view::npos ? ahead.size() : lineFeed + 1);
}

int LoadSave::ReadToLineEnd(_KXFILE* file, char* out, int room) {
    if (kxfeof(file)) return 0;
    std::string_view line = Ahead(file, room);
    line = line.substr(0, line.find('\n'));
    line = line.substr(0, line.find('\r'));
    return Take(file, out, line.size());
}

void LoadSave::freadreal(_KXFILE* file, double* value) {
    *value = 0;
    if (!file) return;
    IBuffer* buffer = file->pBuff;
    while (!kxfeof(file) && IsBlankOrLineEnd(buffer->m_data[buffer->m_position])) {
        ++buffer->m_position;
    }
    if (!kxfeof(file)) buffer->m_position += kx::ParseReal(Ahead(file, INT_MAX), value);
}

int LoadSave::fputs(_KXFILE* file, const char* text) {
    if (!file || !file->writeBack) return -1;
    if (!text) return 0;
    size_t length = std::strlen(text);
    return Write(file, text, length) == length ? 0 : -1;
}

unsigned LoadSave::ReadItems(void* buf, unsigned size, unsigned count, _KXFILE* file) {
    if (kxfeof(file) || size == 0 || count == 0) return 0;
    unsigned long long wanted = static_cast<unsigned long long>(size) * count;
    int room = static_cast<int>(std::min<unsigned long long>(wanted, INT_MAX));
    int taken = Take(file, static_cast<char*>(buf), Ahead(file, room).size());
    return static_cast<unsigned>(taken) / size;
}

unsigned LoadSave::fwrite(const void* buf, unsigned size, unsigned count, _KXFILE* file) {
    unsigned long long wanted = static_cast<unsigned long long>(size) * count;
    if (wanted == 0) return 0;
    return Write(file, buf, static_cast<size_t>(std::min<unsigned long long>(wanted, SIZE_MAX))) / size;
}

int LoadSave::fseek(_KXFILE* file, long offset, int whence) {
    if (!file) return -1;
    bool known = whence == eBuffer_Start || whence == eBuffer_Relative || whence == eBuffer_End;
    if (!known) return -1;
    long long base = whence == eBuffer_Relative ? file->pBuff->m_position : 0;
    if (whence == eBuffer_End) base = file->pBuff->m_size;
    long long target = base + offset;
    if (target < 0 || target > INT_MAX) return -1;
    file->pBuff->Seek(eBuffer_Start, static_cast<int>(target));
    return 0;
}

long LoadSave::ftell(_KXFILE* file) {
    return file ? file->pBuff->m_position : -1;
}
