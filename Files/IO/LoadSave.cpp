// Virtual files: read whole when they are opened, replaced whole when they are closed.
#include "Files/IO/LoadSave.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Number.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave_Area.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <unistd.h>
#include <vector>

HTTP_REQ_CONTEXT* g_pHttpHead = nullptr;

using kx::Area;
using kx::BundleArea;
using kx::Descriptor;
using kx::SaveArea;

namespace {

using Contents = std::unique_ptr<Buffer_Standard>;

// --- names ---------------------------------------------------------------------------------------------------------

bool FileExists(const Area& area, const char* name) {
    std::optional<std::string> place = area.Place(name);
    return place && area.HasFile(*place);
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

// --- contents ------------------------------------------------------------------------------------------------------

/// @return the bytes of an open file, or null and errno.
Contents Load(const Descriptor& file, const struct stat& status) {
    if (status.st_size > kx::kMaxFileBytes) {
        errno = EFBIG;
        return nullptr;
    }
    auto contents = std::make_unique<Buffer_Standard>(static_cast<int>(status.st_size), eBuffer_Format_Grow, 1);
    ssize_t count = kx::ReadAll(file.Get(), contents->m_data, static_cast<size_t>(contents->m_size));
    if (count < 0) return nullptr;
    contents->Truncate(static_cast<int>(count));
    return contents;
}

Contents LoadFrom(const Area& area, const std::string& place) {
    struct stat status {};
    Descriptor file = area.OpenFile(place, O_RDONLY, &status);
    return file ? Load(file, status) : nullptr;
}

/// True where a failed open means that there is no such file, as opposed to one that cannot be read just now: only then
/// may another file stand in for it.
bool MeansNoFile(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == EISDIR || reason == ENXIO || reason == EXDEV ||
           reason == ELOOP;
}

// --- the open files ------------------------------------------------------------------------------------------------

/// Every virtual file that fopen has made and fclose has not ended yet.
class OpenFiles {
public:
    void Add(_KXFILE* file) {
        std::lock_guard<std::mutex> lock(m_mutex);
        file->next = m_first;
        if (m_first) m_first->previous = file;
        m_first = file;
    }

    void Remove(_KXFILE* file) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (file->previous) file->previous->next = file->next;
        if (file->next) file->next->previous = file->previous;
        if (m_first == file) m_first = file->next;
    }

    bool Holds(const void* pointer) {
        std::vector<_KXFILE*> files = All();
        return std::find(files.begin(), files.end(), pointer) != files.end();
    }

    std::vector<_KXFILE*> All() {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<_KXFILE*> files;
        for (_KXFILE* file = m_first; file; file = file->next) {
            files.push_back(file);
        }
        return files;
    }

private:
    std::mutex m_mutex;
    _KXFILE* m_first = nullptr;
};

OpenFiles& TheOpenFiles() {
    static auto* files = new OpenFiles;  // a file may be closed while static objects are destroyed
    return *files;
}

struct FileDeleter {
    void operator()(_KXFILE* file) const {
        delete file->pBuff;
        KXFree(file->pName);
        delete file;
    }
};
using FileOwner = std::unique_ptr<_KXFILE, FileDeleter>;

_KXFILE* Enrol(FileOwner file) {
    TheOpenFiles().Add(file.get());
    return file.release();
}

/// Takes an empty file that the open made away again, so that a failed save does not leave one behind.
void RemoveIfCreatedEmpty(const _KXFILE* file) {
    std::optional<std::string> place = file->created ? SaveArea().Place(file->pName) : std::nullopt;
    if (!place) return;
    struct stat status {};
    Descriptor existing = SaveArea().OpenFile(*place, O_RDONLY, &status);
    if (existing && status.st_size == 0) LoadSave::RemoveSaveFile(file->pName);
}

/// @return 0, or -1 after KXError.
int WriteBack(_KXFILE* file) {
    if (!file->writeBack || !file->changed) return 0;
    std::optional<std::string> place = SaveArea().Place(file->pName);
    int reason = place ? SaveArea().Replace(*place, file->pBuff->m_data, file->pBuff->m_size) : EXDEV;
    if (reason == 0) {
        file->changed = false;
        return 0;
    }
    RemoveIfCreatedEmpty(file);
    KXError("Failed to write file: %s (%s)", file->pName, std::strerror(reason));
    return -1;
}

// --- opening -------------------------------------------------------------------------------------------------------

struct OpenMode {
    bool text = false;
    bool write = false;
    bool keep = false;  // what the file holds
    bool append = false;
};

std::optional<OpenMode> ParseMode(const char* mode) {
    if (!mode) return std::nullopt;
    std::string_view letters = mode;
    OpenMode parsed;
    parsed.text = letters == "rt" || letters == "w" || letters == "a+";
    parsed.append = letters == "a+";
    parsed.keep = parsed.append || letters == "rw";
    parsed.write = parsed.keep || letters.substr(0, 1) == "w";
    bool read = letters == "r" || letters == "rt" || letters == "rb";
    return read || parsed.write ? std::optional<OpenMode>(parsed) : std::nullopt;
}

_KXFILE* OpenForReading(const char* path, const OpenMode& mode) {
    errno = EXDEV;
    for (const Area* area : {&SaveArea(), &BundleArea()}) {
        std::optional<std::string> place = area->Place(path);
        if (!place) continue;
        if (Contents contents = LoadFrom(*area, *place)) {
            FileOwner file(new _KXFILE);
            file->pBuff = contents.release();
            file->isText = mode.text;
            file->pName = KXStrDup(area->FullPath(*place).c_str());
            return Enrol(std::move(file));
        }
        if (!MeansNoFile(errno)) return nullptr;
    }
    return nullptr;
}

/// Where a path is written to: a file of the bundle goes to the same place in the save area.
/// @param fromBundle  set where the bundle's file of that place may stand in for a missing one.
std::optional<std::string> PlaceToWrite(const char* path, bool* fromBundle) {
    std::optional<std::string> place = SaveArea().Place(path);
    *fromBundle = !place || (path[0] != '/' && path[0] != '\\');
    return place ? place : BundleArea().Place(path);
}

/// Replacing a file takes a directory that can be written: better known at the open than at the close.
bool CanReplace(const std::string& place) {
    Descriptor directory = SaveArea().OpenDirectoryOf(place);
    return directory && kx::g_systemCalls.faccessat(directory.Get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
}

bool CreateEmpty(const std::string& place) {
    int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    return static_cast<bool>(kx::OpenBeneath(SaveArea().Root(), place, flags, 0666));
}

_KXFILE* OpenForWriting(const char* path, const OpenMode& mode) {
    bool fromBundle = false;
    std::optional<std::string> place = PlaceToWrite(path, &fromBundle);
    if (!place || place->empty() || !SaveArea().IsSet()) {
        errno = place ? EISDIR : EXDEV;
        return nullptr;
    }

    struct stat status {};
    Descriptor existing = SaveArea().OpenFile(*place, mode.keep ? O_RDWR : O_WRONLY, &status);
    bool exists = static_cast<bool>(existing);
    if (!exists && errno != ENOENT) return nullptr;
    bool shipped = !exists && BundleArea().IsSet() && BundleArea().HasFile(*place);
    fromBundle = fromBundle && shipped && mode.keep;

    Contents contents;
    if (exists && mode.keep) {
        contents = Load(existing, status);
    } else if (fromBundle) {
        contents = LoadFrom(BundleArea(), *place);
    } else {
        contents = std::make_unique<Buffer_Standard>(0, eBuffer_Format_Grow, 1);
    }
    if (!contents) return nullptr;

    int reason = SaveArea().MakeDirectories(kx::ParentOf(*place));
    if (reason) {
        errno = reason;
        return nullptr;
    }
    bool created = !exists && !shipped;
    if (created ? !CreateEmpty(*place) : !CanReplace(*place)) return nullptr;

    FileOwner file(new _KXFILE);
    file->pBuff = contents.release();
    file->isText = mode.text;
    file->pName = KXStrDup(SaveArea().FullPath(*place).c_str());
    file->writeBack = true;
    file->append = mode.append;
    file->created = created;
    bool same = exists ? mode.keep || status.st_size == 0 : fromBundle;
    file->changed = !same;
    if (mode.append) file->pBuff->Seek(eBuffer_End, 0);
    return Enrol(std::move(file));
}

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

// --- the areas -----------------------------------------------------------------------------------------------------

int LoadSave::SetSaveArea(const char* directory) {
    if (directory && std::strchr(directory, '\\')) return EINVAL;
    std::vector<_KXFILE*> files = TheOpenFiles().All();
    if (std::any_of(files.begin(), files.end(), [](const _KXFILE* file) { return file->writeBack; })) return EBUSY;
    if (int reason = SaveArea().SetRoot(directory, true)) return reason;
    kx::SweepTemporaries(SaveArea().Root());
    return 0;
}

int LoadSave::SetBundleArea(const char* directory) {
    return BundleArea().SetRoot(directory, false);
}

bool LoadSave::SaveFileExists(const char* name) {
    return FileExists(SaveArea(), name);
}

bool LoadSave::BundleFileExists(const char* name) {
    return FileExists(BundleArea(), name);
}

int LoadSave::_GetSaveFileName(char* out, int size, const char* name) {
    return WritePath(SaveArea(), out, size, name);
}

int LoadSave::_GetBundleFileName(char* out, int size, const char* name) {
    return WritePath(BundleArea(), out, size, name);
}

// --- whole files ---------------------------------------------------------------------------------------------------

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

char* LoadSave::ReadBundleFile(const char* name, int* size) {
    std::optional<std::string> place = BundleArea().Place(name);
    if (!place) return nullptr;
    try {
        Contents contents = LoadFrom(BundleArea(), *place);
        if (!contents) return nullptr;
        *size = contents->m_size;
        return std::exchange(contents->m_data, nullptr);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int LoadSave::WriteFile(const char* name, const char* data, int length, ASYNC_SAVE_LOAD_REQ_CONTEXT* /*ctx*/) {
    if (!data || length < 0) return 0;
    std::optional<std::string> place = SaveArea().Place(name);
    bool valid = place && !place->empty();
    int reason = valid ? SaveArea().Replace(*place, data, length) : EXDEV;
    if (reason) dbg_csol->Output("Failed to write file: %s (%s)\n", name ? name : "", std::strerror(reason));
    return reason == 0;
}

// --- virtual files -------------------------------------------------------------------------------------------------

_KXFILE* LoadSave::fopen(const char* path, const char* mode) {
    std::optional<OpenMode> parsed = ParseMode(mode);
    if (!parsed) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        return parsed->write ? OpenForWriting(path, *parsed) : OpenForReading(path, *parsed);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

int LoadSave::fclose(_KXFILE* file) {
    if (!file) return 0;
    TheOpenFiles().Remove(file);
    FileOwner owner(file);
    return WriteBack(file);
}

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

unsigned LoadSave::fread(void* buf, unsigned size, unsigned count, _KXFILE* file) {
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

// --- the end -------------------------------------------------------------------------------------------------------

void LoadSave::SetDurability(kx::Durability durability) {
    SaveArea().SetDurability(durability);
}

void LoadSave::DiscardUnfinished() {
    for (_KXFILE* file : TheOpenFiles().All()) {
        if (!file->writeBack || file->append || !file->changed) continue;
        file->writeBack = false;
        RemoveIfCreatedEmpty(file);
        dbg_csol->Output("Not written, because the script failed before it was closed: %s\n", file->pName);
    }
}

void LoadSave::Shutdown() {
    for (_KXFILE* file : TheOpenFiles().All()) {
        WriteBack(file);
        file->writeBack = false;
    }
}

int KXCloseStream(FILE* stream) {
    if (!stream) return 0;
    if (TheOpenFiles().Holds(stream)) return LoadSave::fclose(reinterpret_cast<_KXFILE*>(stream));
    return std::fclose(stream) == 0 ? 0 : -1;
}
