#pragma once

// What the module's sources share. Nobody else includes it.

#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"

#include <cstdio>

/// What the module's allocations are tagged with.
constexpr char MODULE_SOURCE[] = "Files/Function/Function_File";

constexpr int MAXFILE = 32;   // text-file slots; slot 0 is never handed out
constexpr int MAXBFILE = 32;  // binary-file slots; slot 0 is never handed out

typedef char* String;

/// One slot of the text-file and of the binary-file table.
struct StFile {
    String name;  // resolved full path, owned; null when the slot is empty
    int mode;     // as the opener was asked
    union {
        FILE* file;  // how the shutdown sees the handle
        HKXFILE hF;  // how everything else sees it
    };
};

/// Takes a slot's file out of it, so that the slot names none whatever comes of closing it.
inline HKXFILE TakeFile(StFile& slot) {
    HKXFILE file = slot.hF;
    slot.hF = nullptr;
    return file;
}

/// A file that is closed when it goes out of scope, with what was written to it given up, unless it is released before.
struct UnfinishedFile {
    explicit UnfinishedFile(HKXFILE owned) : file(owned) {}
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile() {
        LoadSave::Abandon(file);
        LoadSave::fclose(file);
    }

    HKXFILE Release() {
        HKXFILE released = file;
        file = nullptr;
        return released;
    }

    HKXFILE file;  ///< may be null
};

constexpr int FILE_MODE_SIZE = 10;

enum : int { FILE_CLOSED = 0, FILE_READING = 1, FILE_WRITING = 2 };

extern StFile textfiles[MAXFILE];
extern int filestatus[MAXFILE];
extern StFile binfiles[MAXBFILE];
extern bool bfilestatus[MAXBFILE];
extern char FileMode[FILE_MODE_SIZE];  // how the last binary file was opened
extern kxFindData g_kxFindData;        // the one file search
extern bool filesrused;                // it found something and has not been closed

/// The size of the buffers that names are resolved into, and of the scratch copies that paths are cut in.
constexpr int PATH_SIZE = 1024;
constexpr int SCRATCH_PATH_SIZE = 2048;

inline void SetReal(RValue& result, double value) {
    result.real = value;
    result.kind = VALUE_REAL;
}

/// A string with no text, which scripts read as an empty one.
inline void SetNoText(RValue& result) {
    result.str = nullptr;
    result.kind = VALUE_STRING;
}

/// Resolves a name that is to be read: in the save area, else in the bundle area.
/// @return false where it exists in neither; `path` is then as it was.
inline bool ResolveExisting(char* path, const char* name) {
    if (LoadSave::SaveFileExists(name)) {
        LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
        return true;
    }
    if (LoadSave::BundleFileExists(name)) {
        LoadSave::_GetBundleFileName(path, PATH_SIZE, name);
        return true;
    }
    return false;
}

inline void SetFileMode(const char* mode) {
    std::snprintf(FileMode, sizeof FileMode, "%s", mode);
}

/// Where a name is found, or would be made.
inline void ResolveOrMake(char* path, const char* name) {
    if (ResolveExisting(path, name)) return;
    SetFileMode("ab+");
    LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
}

// Binary files
void F_FileBinOpen(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinRewrite(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinClose(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinPosition(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinSize(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinSeek(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinReadByte(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileBinWriteByte(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// Text files
void F_FileTextSet(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextOpenRead(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextOpenWrite(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextOpenAppend(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextClose(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextReadString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextReadReal(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextReadLn(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextEof(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextEoln(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextWriteString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextWriteReal(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileTextWriteLn(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// Files and directories
void F_FileExists(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileDelete(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileRename(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileCopy(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_DirectoryExists(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_DirectoryCreate(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_DirectoryDelete(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileAttributes(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// File search
void F_FileFindFirst(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileFindNext(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FileFindClose(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// File names
void F_FilenameName(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FilenamePath(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FilenameDir(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FilenameDrive(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FilenameExt(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_FilenameChangeExt(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// Program parameters and environment
void F_ParameterCount(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_ParameterString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_EnvironmentGetVariable(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// INI documents
void F_IniOpenFromString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniOpen(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniClose(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniReadString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniReadReal(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniWriteString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniWriteReal(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniKeyExists(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniSectionExists(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniKeyDelete(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_IniSectionDelete(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// HTTP
void F_HttpPostString(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_HttpGet(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_HttpGetFile(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_HttpRequest(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_HttpGetRequestCrossOrigin(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_HttpSetRequestCrossOrigin(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// JSON
void F_JsonEncode(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_JsonDecode(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_JsonEncodeExt(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_JsonDecodeExt(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

// Archives and tables
void F_ZipUnzip(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
void F_LoadCSV(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);
