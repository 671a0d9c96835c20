// Files and directories by name. Each looks where it has to, in an order of its own:
//
// | built-in          | looks in                      | result                                                     |
// |-------------------|-------------------------------|------------------------------------------------------------|
// | file_exists       | bundle, save area             | 1 or 0                                                     |
// | file_delete       | save area                     | the host's, or 0                                           |
// | file_rename       | save area                     | 1 or 0; not set when the old name is not in the save area  |
// | file_copy         | from: save area, bundle       | 0, or -1                                                   |
// |                   | to: save area                 |                                                            |
// | directory_exists  | save area, bundle             | 1 or 0                                                     |
// | directory_create  | save area                     | 1 or 0                                                     |
// | directory_destroy | save area                     | not set                                                    |
// | file_attributes   | save area, bundle             | attribute bits, or 0                                       |
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_File.h"
#include "Platform/MemoryManager.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr size_t COPY_SIZE = 4096;

FILE* OpenDestination(const char* path, const char* name) {
    FILE* hFD = KXOpenStream(path, "wb");
    if (!hFD) dbg_csol->Output("Unable to open destination file %s\n", name ? name : "");
    return hFD;
}

/// Copies what a stream holds and closes it. A write that falls short is the host's to report.
/// @return false where the source cannot be read to its end, or the destination cannot be opened.
bool CopyStream(FILE* hFS, const char* path, const char* name) {
    FILE* hFD = OpenDestination(path, name);
    if (!hFD) {
        std::fclose(hFS);
        return false;
    }
    char chunk[COPY_SIZE];
    while (size_t count = std::fread(chunk, 1, sizeof chunk, hFS)) {
        std::fwrite(chunk, 1, count, hFD);
    }
    bool whole = !std::ferror(hFS);
    if (!whole) KXAbandonStream(hFD);
    std::fclose(hFS);
    std::fclose(hFD);
    return whole;
}

/// Copies a file of the bundle that only the host can read. It stands in for no saved file that cannot be opened.
bool CopyShipped(const char* source, const char* path, const char* name) {
    int bundleFileSize = 0;
    bool saved = LoadSave::SaveFileExists(source);
    HostText bundleFileBuffer(saved ? nullptr : LoadSave::ReadBundleFile(source, &bundleFileSize));
    if (!bundleFileBuffer.text) {
        dbg_csol->Output("Unable to open source file %s\n", source ? source : "");
        return false;
    }
    FILE* hFD = OpenDestination(path, name);
    if (!hFD) return false;
    std::fwrite(bundleFileBuffer.text, 1, static_cast<size_t>(bundleFileSize), hFD);
    std::fclose(hFD);
    return true;
}

}  // namespace

void EnsureDirectoryIsCreated(const char* _filename) {
    char dirname[SCRATCH_PATH_SIZE];
    std::snprintf(dirname, sizeof dirname, "%s", _filename);
    char* pLastDir = std::strrchr(dirname, '\\');
    if (!pLastDir) pLastDir = std::strrchr(dirname, '/');
    if (!pLastDir) return;
    *pLastDir = 0;
    ForceDirectories(dirname);
}

void F_FileExists(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* name = KXGetString(arg, 0);
    bool exists = LoadSave::BundleFileExists(name) || LoadSave::SaveFileExists(name);
    SetReal(result, exists ? 1 : 0);
}

void F_FileDelete(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(result, 0);
    const char* name = KXGetString(arg, 0);
    if (!LoadSave::SaveFileExists(name)) return;
    char path[SCRATCH_PATH_SIZE];
    LoadSave::_GetSaveFileName(path, SCRATCH_PATH_SIZE, name);
    SetReal(result, LoadSave::RemoveSaveFile(path));
}

void F_FileRename(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* oldName = KXGetString(arg, 0);
    const char* newName = KXGetString(arg, 1);
    if (!LoadSave::SaveFileExists(oldName)) return;
    char oldPath[SCRATCH_PATH_SIZE];
    char newPath[SCRATCH_PATH_SIZE];
    LoadSave::_GetSaveFileName(oldPath, SCRATCH_PATH_SIZE, oldName);
    LoadSave::_GetSaveFileName(newPath, SCRATCH_PATH_SIZE, newName);
    SetReal(result, 0);
    if (LoadSave::RenameSaveFile(oldPath, newPath) == 0) SetReal(result, 1);
}

void F_FileCopy(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* source = KXGetString(arg, 0);
    const char* destination = KXGetString(arg, 1);
    SetReal(result, -1);
    char sname[PATH_SIZE] = "";
    ResolveExisting(sname, source);
    char dname[PATH_SIZE];
    LoadSave::_GetSaveFileName(dname, PATH_SIZE, destination);
    EnsureDirectoryIsCreated(dname);  // before the source is opened: a failed copy may leave directories

    FILE* hFS = KXOpenStream(sname, "rb");
    bool copied = hFS ? CopyStream(hFS, dname, destination) : CopyShipped(source, dname, destination);
    if (copied) SetReal(result, 0);
}

void F_DirectoryExists(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* name = KXGetString(arg, 0);
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
    bool exists = DirectoryExists(path);
    if (!exists) exists = LoadSave::_GetBundleFileName(path, PATH_SIZE, name) == 0 && DirectoryExists(path);
    SetReal(result, exists ? 1 : 0);
}

void F_DirectoryCreate(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(result, 0);
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, KXGetString(arg, 0));
    if (ForceDirectories(path)) SetReal(result, 1);
}

void F_DirectoryDelete(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* name = KXGetString(arg, 0);
    if (!name) return;
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
    if (*path) DestroyDir(path);
}

void F_FileAttributes(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(result, 0);
    const char* name = KXGetString(arg, 0);
    char path[PATH_SIZE];
    if (LoadSave::SaveFileExists(name)) {
        LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
        SetReal(result, KXGetFileAttributes(path, true));
    } else if (LoadSave::BundleFileExists(name)) {
        LoadSave::_GetBundleFileName(path, PATH_SIZE, name);
        SetReal(result, KXGetFileAttributes(path, false));
    }
}
