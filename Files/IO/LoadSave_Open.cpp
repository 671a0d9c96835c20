// The life of a virtual file: read whole when it is opened, replaced whole when it is closed.
#include "Files/IO/LoadSave_Open.h"

#include "Files/Base/Registry.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave_HttpRequest.h"
#include "Platform/MemoryManager.h"

#include <cstring>
#include <fcntl.h>
#include <new>
#include <optional>
#include <string_view>
#include <unistd.h>

using kx::Area;
using kx::BundleArea;
using kx::Contents;
using kx::Descriptor;
using kx::SaveArea;

namespace {

// --- the open files -------------------------------------------------------------------------------------------------

using OpenFiles = kx::Registry<_KXFILE>;

/// Every virtual file that fopen has made and fclose has not ended yet.
OpenFiles& TheOpenFiles() {
    static auto* files = new OpenFiles;  // a file may be closed while static objects are destroyed
    return *files;
}

/// @return one of the open files that a condition holds for, the newest; null where there is none.
template <class Condition>
_KXFILE* FindOpenFile(Condition condition) {
    _KXFILE* found = nullptr;
    TheOpenFiles().ForEach([&](_KXFILE* file) {
        if (!found && condition(*file)) found = file;
    });
    return found;
}

bool IsUnfinished(const _KXFILE& file) {
    return file.writeBack && !file.append && file.changed;
}

bool IsOpenFile(const void* pointer) {
    return FindOpenFile([pointer](const _KXFILE& file) { return &file == pointer; }) != nullptr;
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
    if (!file->created) return;
    try {
        std::optional<std::string> place = SaveArea().Place(file->pName);
        struct stat status {};
        Descriptor existing = place ? SaveArea().OpenFile(*place, O_RDONLY, &status) : Descriptor();
        if (existing && status.st_size == 0) LoadSave::RemoveSaveFile(file->pName);
    } catch (const std::bad_alloc&) {
        // it stays: empty, and no loss
    }
}

/// Without the memory for it a file is not written, like any other that fails: its owner must still end it.
/// @return 0 or an errno value.
int Replace(const _KXFILE* file) {
    try {
        std::optional<std::string> place = SaveArea().Place(file->pName);
        return place ? SaveArea().Replace(*place, file->pBuff->m_data, file->pBuff->m_size) : EXDEV;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

/// @return 0, or -1 after KXError.
int WriteBack(_KXFILE* file) {
    if (!file->writeBack || !file->changed) return 0;
    int reason = Replace(file);
    if (reason == 0) {
        file->changed = false;
        return 0;
    }
    RemoveIfCreatedEmpty(file);
    KXError("Failed to write file: %s (%s)", file->pName, std::strerror(reason));
    return -1;
}

// --- opening --------------------------------------------------------------------------------------------------------

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

_KXFILE* OpenForReading(const char* name, const OpenMode& mode) {
    std::string path;
    Contents contents = kx::LoadExisting(name, &path);
    if (!contents) return nullptr;
    FileOwner file(new _KXFILE);
    file->pBuff = contents.release();
    file->isText = mode.text;
    file->pName = KXStrDup(path.c_str());
    return Enrol(std::move(file));
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

/// Whether the bundle has a file at a place.
/// @return 0 with `shipped` set; an errno value where that cannot be told.
int LookForShipped(const std::string& place, bool* shipped) {
    struct stat status {};
    int reason = BundleArea().IsSet() ? BundleArea().Look(place, &status) : ENOENT;
    *shipped = reason == 0 && S_ISREG(status.st_mode);
    return reason && !kx::MeansNoFile(reason) ? reason : 0;
}

_KXFILE* OpenForWriting(const char* path, const OpenMode& mode) {
    std::optional<std::string> place = kx::PlaceToWrite(path);
    if (!place || place->empty() || !SaveArea().IsSet()) {
        errno = place ? EISDIR : EXDEV;
        return nullptr;
    }

    struct stat status {};
    Descriptor existing = SaveArea().OpenFile(*place, mode.keep ? O_RDWR : O_WRONLY, &status);
    bool exists = static_cast<bool>(existing);
    if (!exists && errno != ENOENT) return nullptr;
    bool shipped = false;
    int unknown = exists ? 0 : LookForShipped(*place, &shipped);
    if (unknown && mode.keep) {  // nobody knows what it would keep
        errno = unknown;
        return nullptr;
    }
    // A full path in the save area means the file there, and no other.
    bool mayBeShipped = path[0] != '/' && path[0] != '\\';
    bool fromBundle = shipped && mode.keep && (mayBeShipped || !SaveArea().Place(path));

    Contents contents;
    if (exists && mode.keep) {
        contents = kx::LoadOpenFile(existing, status, SaveArea().FullPath(*place));
    } else if (fromBundle) {
        contents = BundleArea().Load(*place);
    } else {
        contents = std::make_unique<Buffer_Standard>(0, eBuffer_Format_Grow, 1);
    }
    if (!contents) return nullptr;

    int reason = SaveArea().MakeDirectories(kx::ParentOf(*place));
    if (reason) {
        errno = reason;
        return nullptr;
    }
    bool created = !exists && !shipped && !unknown;  // an empty file would hide what is shipped, or may be
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

}  // namespace

bool kx::MeansNoFile(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == EISDIR || reason == ENXIO || reason == EXDEV ||
           reason == ELOOP || reason == ENAMETOOLONG;
}

std::optional<std::string> kx::PlaceToWrite(const char* name) {
    std::optional<std::string> place = SaveArea().Place(name);
    return place ? place : BundleArea().Place(name);
}

Contents kx::LoadExisting(const char* name, std::string* path) {
    int reason = 0;
    for (const Area* area : {static_cast<Area*>(&SaveArea()), &BundleArea()}) {
        std::optional<std::string> place = area->Place(name);
        if (!place) continue;
        if (Contents contents = area->Load(*place)) {
            if (path) *path = area->FullPath(*place);
            return contents;
        }
        if (!kx::MeansNoFile(errno)) return nullptr;
        bool missing = reason == 0 || reason == ENOENT || reason == ENOTDIR;
        if (missing) reason = errno;  // that the bundle has none is no reason where the save area has what is no file
    }
    errno = reason ? reason : EXDEV;
    return nullptr;
}

const char* kx::WhyUnreadable(int reason) {
    return reason == EXDEV ? "no file of the two areas can have this name" : std::strerror(reason);
}

std::unique_ptr<kx::Archive> kx::OpenArchive(const char* path, std::string* fault) {
    errno = EXDEV;
    for (const Area* area : {static_cast<Area*>(&SaveArea()), &BundleArea()}) {
        std::optional<std::string> place = area->Place(path);
        if (!place) continue;
        struct stat status {};
        if (Descriptor file = area->OpenToRead(*place, &status)) {
            return Archive::Open(ArchiveBytes(std::move(file), status), fault);
        }
        if (Contents contents = area->Load(*place)) return Archive::Open(ArchiveBytes(std::move(contents)), fault);
        break;
    }
    *fault = WhyUnreadable(errno);
    return nullptr;
}

bool kx::AnyFileOpenForWriting() {
    return FindOpenFile([](const _KXFILE& file) { return file.writeBack; }) != nullptr;
}

bool kx::IsOpenForWriting(const std::string& path) {
    return FindOpenFile([&path](const _KXFILE& file) { return file.writeBack && path == file.pName; }) != nullptr;
}

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

void LoadSave::Abandon(_KXFILE* file) {
    if (!file || !file->writeBack) return;
    file->writeBack = false;
    if (file->changed) RemoveIfCreatedEmpty(file);
}

void LoadSave::DiscardUnfinished() {
    while (_KXFILE* file = FindOpenFile(IsUnfinished)) {
        Abandon(file);
        dbg_csol->Output("Not written, because the script failed before it was closed: %s\n", file->pName);
    }
}

void LoadSave::Shutdown() {
    kx::EndHttp();
    while (_KXFILE* file = FindOpenFile([](const _KXFILE& each) { return each.writeBack; })) {
        WriteBack(file);
        file->writeBack = false;
    }
}

int KXCloseStream(FILE* stream) {
    if (!stream) return 0;
    if (IsOpenFile(stream)) return LoadSave::fclose(reinterpret_cast<_KXFILE*>(stream));
    return std::fclose(stream) == 0 ? 0 : -1;
}
